#include "util/qt/Qt_image_utils.h"

#include <QRect>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace {

QRgb background_of(const QImage& image)
{
    const int right = image.width() - 1;
    const int bottom = image.height() - 1;
    const std::array<QRgb, 4> corners = {image.pixel(0, 0), image.pixel(right, 0), image.pixel(0, bottom),
                                         image.pixel(right, bottom)};
    // The first of the largest.
    return *std::max_element(corners.begin(), corners.end(), [&corners](QRgb a, QRgb b) {
        return std::count(corners.begin(), corners.end(), a) < std::count(corners.begin(), corners.end(), b);
    });
}

/// What is not background, with the line of background next to it on each side that has one.
///
/// The columns are looked through row by row, up to what is known to be content: the way memory is read fast.
QRect content_box(const QImage& image, QRgb background)
{
    const int last_x = image.width() - 1;
    const int last_y = image.height() - 1;

    int first = last_x; // column of content, or the last one
    for (int y = 0; y <= last_y; ++y)
        for (int x = 0; x < first; ++x)
            if (image.pixel(x, y) != background)
                first = x;
    const int left = std::max(0, first - 1);

    int last = left;
    for (int y = 0; y <= last_y; ++y)
        for (int x = last_x; x > last; --x)
            if (image.pixel(x, y) != background)
                last = x;
    const int right = std::min(last_x, last + 1);

    const auto is_blank = [&](int y) {
        for (int x = left; x <= right; ++x)
            if (image.pixel(x, y) != background)
                return false;
        return true;
    };
    int top = 0;
    for (int y = 0; y < last_y && is_blank(y); ++y)
        top = y;
    int bottom = last_y;
    for (int y = last_y; y > top && is_blank(y); --y)
        bottom = y;

    return {left, top, right + 1 - left, bottom + 1 - top};
}

QImage plain_crop(const QImage& image, QRect box, QSize min_size)
{
    if (box.width() < min_size.width()) {
        box.moveLeft(box.left() - (min_size.width() - box.width()) / 2);
        box.setWidth(min_size.width());
    }
    if (box.height() < min_size.height()) {
        box.moveTop(box.top() - (min_size.height() - box.height()) / 2);
        box.setHeight(min_size.height());
    }
    return image.copy(box);
}

/// Paints the pixels at a distance from the image's edge.
void paint_ring(QImage& image, int distance, uint colour)
{
    const int right = image.width() - 1 - distance;
    const int bottom = image.height() - 1 - distance;
    for (int x = distance; x <= right; ++x) {
        image.setPixel(x, distance, colour);
        image.setPixel(x, bottom, colour);
    }
    for (int y = distance; y <= bottom; ++y) {
        image.setPixel(distance, y, colour);
        image.setPixel(right, y, colour);
    }
}

/// What setPixel() takes for a colour that the image has: in an image that has a colour table, its index.
uint paint_of(const QImage& image, QRgb colour)
{
    switch (image.format()) {
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
    case QImage::Format_Indexed8:
        return static_cast<uint>(image.colorTable().indexOf(colour));
    default:
        return colour;
    }
}

/// Makes transparent what is more than `border` pixels away from content.
///
/// Each column remembers its latest row of content, so that a pixel asks 2 * border + 1 columns and not a
/// square of pixels. The first row looked at is 3 * border, and content above it counts for nothing. Kept so.
void cut_halo(QImage& output, const QImage& plain, QRgb background, int border)
{
    constexpr int NONE = -5; // further than `border` above every row that asks
    int seed = NONE;
    // Column `border` for all of them, which the rings have painted over: this finds nothing, unless the
    // background is a pixel that cannot be painted,
    // as one with bits set that its format leaves unused. Kept so.
    for (int y = 2 * border + 1; y >= 1 && seed == NONE; --y)
        if (plain.pixel(border, y) != background)
            seed = y;
    const int width = plain.width();
    const int height = plain.height();
    std::vector<int> latest(static_cast<std::size_t>(width), seed);

    for (int y = 2 * border; y < height - border; ++y) {
        for (int x = 0; x < width; ++x)
            if (plain.pixel(x, y + border) != background)
                latest[static_cast<std::size_t>(x)] = y + border;
        for (int x = 2 * border; x < width - border; ++x) {
            const auto here = latest.begin() + x;
            if (std::none_of(here - border, here + border + 1, [&](int row) { return y - row <= border; }))
                output.setPixel(x, y, 0);
        }
    }
}

QImage crop_with_border(const QImage& image, const QRect& box, QRgb background, int border)
{
    const int around = 2 * border;
    QImage plain = image.copy(box.adjusted(-around, -around, around, around));
    QImage output = plain.convertToFormat(QImage::Format_ARGB32);

    // They never cross: the box between them has one pixel at least.
    const uint paint = paint_of(plain, background);
    for (int distance = 0; distance < around; ++distance) {
        paint_ring(output, distance, distance < border ? 0 : background);
        paint_ring(plain, distance, paint);
    }
    cut_halo(output, plain, background, border);
    return output.copy(output.rect().adjusted(border, border, -border, -border));
}

} // namespace

QImage Qt_image_utils::trim_blank(QImage image, QSize min_size, int border)
{
    if (image.isNull())
        return image;
    const QRgb background = background_of(image);
    const QRect box = content_box(image, background);
    return border < 1 ? plain_crop(image, box, min_size) : crop_with_border(image, box, background, border);
}
