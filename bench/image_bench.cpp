#include "util/qt/Qt_image_utils.h"

#include <Magick++.h>
#include <QImage>
#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

namespace {

constexpr int SIDE = 1024;

/// A figure on white.
QImage image_of(const QRect& figure)
{
    QImage image(SIDE, SIDE, QImage::Format_ARGB32);
    image.fill(Qt::white);
    for (int y = figure.top(); y <= figure.bottom(); ++y)
        for (int x = figure.left(); x <= figure.right(); ++x)
            image.setPixel(x, y, qRgb(x % 256, y % 256, 0));
    return image;
}

const QRect SMALL(480, 480, 64, 64);
const QRect LARGE(4, 4, SIDE - 8, SIDE - 8);

void ours(benchmark::State& state, const QRect& figure)
{
    const QImage image = image_of(figure);
    const QSize size = figure.size() + QSize(2, 2); // a line of background is left on each side
    if (Qt_image_utils::trim_blank(image, {0, 0}, 0) != image.copy(figure.adjusted(-1, -1, 1, 1)))
        state.SkipWithError("the figure is not what is cut out");
    for (auto _ : state) {
        const QImage trimmed = Qt_image_utils::trim_blank(image, {0, 0}, 0);
        if (trimmed.size() != size)
            state.SkipWithError("the figure is not cut out");
    }
    state.SetItemsProcessed(state.iterations());
}

/// The copy shares its pixels: what is measured is the trimming, which makes an image of its own.
void by_magick(benchmark::State& state, const QRect& figure)
{
    const QImage image = image_of(figure);
    const Magick::Image whole(SIDE, SIDE, "BGRA", Magick::CharPixel, image.constBits());
    const auto columns = static_cast<std::size_t>(figure.width());
    const auto rows = static_cast<std::size_t>(figure.height());
    for (auto _ : state) {
        Magick::Image trimmed(whole);
        trimmed.trim();
        if (trimmed.columns() != columns || trimmed.rows() != rows)
            state.SkipWithError("the figure is not cut out");
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

int main(int argc, char** argv)
{
    Magick::InitializeMagick(argv[0]);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("ImageMagick", MagickLibVersionText);
    benchmark::AddCustomContext("Qt", qVersion());
    const struct {
        const char* name;
        QRect figure;
    } cases[] = {{"1024 x 1024, a small figure", SMALL}, {"1024 x 1024, a thin border", LARGE}};
    // Real time: the peer works with all the processor's cores.
    for (const auto& c : cases) {
        benchmark::RegisterBenchmark((std::string("trim_blank/ours/") + c.name).c_str(), ours, c.figure)
            ->UseRealTime();
        benchmark::RegisterBenchmark((std::string("trim_blank/Magick++ trim/") + c.name).c_str(), by_magick,
                                     c.figure)
            ->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
