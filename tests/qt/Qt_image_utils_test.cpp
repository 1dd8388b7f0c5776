#include "util/qt/Qt_image_utils.h"

#include <QImage>
#include <QRect>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

using Qt_image_utils::trim_blank;

namespace {

constexpr QRgb WHITE = 0xFFFFFFFF;
constexpr QRgb BLACK = 0xFF000000;
constexpr QRgb GREY = 0xFF808080;
constexpr QRgb RED = 0xFFFF0000;
constexpr QRgb CLEAR = 0;

using Picture = std::vector<std::string>;

const std::pair<char, QRgb> COLOURS[] = {{'.', WHITE}, {'#', BLACK}, {'o', GREY},
                                         {'r', RED},   {' ', CLEAR}, {'h', 0x80FF0000}};

/// An image drawn with characters.
QImage drawn(const Picture& picture, QImage::Format format = QImage::Format_ARGB32)
{
    QImage image(static_cast<int>(picture.at(0).size()), static_cast<int>(picture.size()),
                 QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            for (const auto& [character, colour] : COLOURS)
                if (picture[static_cast<std::size_t>(y)].at(static_cast<std::size_t>(x)) == character)
                    image.setPixel(x, y, colour);
    return image.convertToFormat(format);
}

/// The way back; what has no character is a question mark.
Picture shown(const QImage& image)
{
    Picture picture;
    for (int y = 0; y < image.height(); ++y) {
        picture.emplace_back();
        for (int x = 0; x < image.width(); ++x) {
            char seen = '?';
            for (const auto& [character, colour] : COLOURS)
                if (image.pixel(x, y) == colour)
                    seen = character;
            picture.back() += seen;
        }
    }
    return picture;
}

Picture trimmed(const Picture& picture, int border = 0, QSize min_size = {0, 0})
{
    return shown(trim_blank(drawn(picture), min_size, border));
}

/// A white image with black dots.
QImage with_dots(QSize size, const std::vector<QPoint>& dots)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(WHITE);
    for (const QPoint& dot : dots)
        image.setPixel(dot, BLACK);
    return image;
}

// ---- a second way, written down step by step and without regard to time

struct Pixels {
    explicit Pixels(const QImage& image) : width(image.width()), height(image.height())
    {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                all.push_back(image.pixel(x, y));
    }
    QRgb& at(int x, int y) { return all.at(static_cast<std::size_t>(y * width + x)); }
    QRgb at(int x, int y) const { return all.at(static_cast<std::size_t>(y * width + x)); }
    bool operator==(const Pixels& other) const
    {
        return width == other.width && height == other.height && all == other.all;
    }

    int width, height;
    std::vector<QRgb> all;
};

QImage as_image(const Pixels& pixels)
{
    QImage image(pixels.width, pixels.height, QImage::Format_ARGB32);
    for (int y = 0; y < pixels.height; ++y)
        for (int x = 0; x < pixels.width; ++x)
            image.setPixel(x, y, pixels.at(x, y));
    return image;
}

void PrintTo(const Pixels& pixels, std::ostream* stream)
{
    for (int y = 0; y < pixels.height; ++y) {
        *stream << "\n";
        for (int x = 0; x < pixels.width; ++x)
            *stream << " " << std::hex << pixels.at(x, y);
    }
}

QRgb reference_background(const Pixels& image)
{
    const std::vector<QRgb> corners = {image.at(0, 0), image.at(image.width - 1, 0),
                                       image.at(0, image.height - 1),
                                       image.at(image.width - 1, image.height - 1)};
    const auto times = [&corners](QRgb colour) {
        int count = 0;
        for (const QRgb corner : corners)
            count += corner == colour ? 1 : 0;
        return count;
    };
    QRgb background = corners[0];
    int most = times(background);
    for (const QRgb corner : corners)
        if (times(corner) > most) {
            background = corner;
            most = times(corner);
        }
    return background;
}

struct Box {
    int left, top, right, bottom;
};

Box reference_box(const Pixels& image, QRgb background)
{
    Box box{0, 0, image.width - 1, image.height - 1};
    const auto column_blank = [&](int x) {
        bool blank = true;
        for (int y = 0; y < image.height; ++y)
            blank = blank && image.at(x, y) == background;
        return blank;
    };
    const auto row_blank = [&](int y) {
        bool blank = true;
        for (int x = box.left; x <= box.right; ++x)
            blank = blank && image.at(x, y) == background;
        return blank;
    };
    for (int x = 0; x <= image.width - 2; ++x) {
        if (!column_blank(x))
            break;
        box.left = x;
    }
    for (int x = image.width - 1; x >= box.left + 1; --x) {
        if (!column_blank(x))
            break;
        box.right = x;
    }
    for (int y = 0; y <= image.height - 2; ++y) {
        if (!row_blank(y))
            break;
        box.top = y;
    }
    for (int y = image.height - 1; y >= box.top + 1; --y) {
        if (!row_blank(y))
            break;
        box.bottom = y;
    }
    return box;
}

/// What the images of a format show where a colour was set:
/// not every pixel that an image may hold can be set.
QRgb as_painted(const QImage& image, QRgb colour)
{
    if (image.pixelFormat().colorModel() == QPixelFormat::Indexed)
        return colour; // by its index, whatever that is
    QImage one(1, 1, image.format());
    one.setPixel(0, 0, colour);
    return one.pixel(0, 0);
}

/// What the reference came by, to see that the cases are worth their while.
struct Met {
    int seeds = 0;   ///< content found in column b
    int cut = 0;     ///< pixels within the border made transparent
    int spared = 0;  ///< and those left as they are
    int widened = 0; ///< to the minimum
};

Pixels reference(const QImage& image, QSize min_size, int b, Met* met)
{
    const Pixels source(image);
    const QRgb background = reference_background(source);
    const Box box = reference_box(source, background);
    int w = box.right + 1 - box.left;
    int h = box.bottom + 1 - box.top;
    if (b < 1) {
        int left = box.left;
        int top = box.top;
        if (w < min_size.width()) {
            left -= (min_size.width() - w) / 2;
            w = min_size.width();
            ++met->widened;
        }
        if (h < min_size.height()) {
            top -= (min_size.height() - h) / 2;
            h = min_size.height();
        }
        return Pixels(image.copy(left, top, w, h));
    }

    const int W = w + 4 * b;
    const int H = h + 4 * b;
    const QImage copy = image.copy(box.left - 2 * b, box.top - 2 * b, W, H);
    Pixels plain(copy);
    Pixels output(copy.convertToFormat(QImage::Format_ARGB32));
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int ring = std::min({x, y, W - 1 - x, H - 1 - y});
            if (ring >= 2 * b)
                continue;
            output.at(x, y) = ring < b ? 0 : background;
            plain.at(x, y) = as_painted(image, background);
        }

    int seed = -5;
    for (int y = 1; y <= 2 * b + 1; ++y)
        if (plain.at(b, y) != background)
            seed = y; // downwards, so the last one is the first from below
    met->seeds += seed != -5;
    const auto latest = [&](int c, int y) {
        for (int row = y + b; row >= 3 * b; --row)
            if (plain.at(c, row) != background)
                return row;
        return seed;
    };
    for (int y = 2 * b; y <= H - 1 - b; ++y)
        for (int x = 2 * b; x <= W - 1 - b; ++x) {
            bool near = false;
            for (int c = x - b; c <= x + b; ++c)
                near = near || y - latest(c, y) <= b;
            ++(near ? met->spared : met->cut);
            if (!near)
                output.at(x, y) = 0;
        }

    return Pixels(as_image(output).copy(b, b, W - 2 * b, H - 2 * b));
}

// ---- pictures kept beside the test

struct Golden {
    const char* name;
    Picture picture;
    QSize min_size;
    int border;
};

const Picture ARROW = {"........................", "........................", "...........#............",
                       "..........###...........", ".........#####..........", "........###o###.........",
                       ".......###ooo###........", "..........ooo...........", "..........ooo...........",
                       "..........ooo...........", "........................", "........................",
                       "........................"};
const Picture TWO_BLOBS = {"...................", ".##................", ".##................",
                           "...................", "...................", "...................",
                           "...............rr..", "...............rr..", "..............rrr..",
                           "...................", "..................."};
const Picture AT_THE_EDGE = {"...........", "...........", "##.........", "###........", "####.......",
                             "###........", "##.........", "...........", "..........."};

std::vector<Golden> goldens()
{
    return {{"arrow_plain", ARROW, {0, 0}, 0},           {"arrow_at_least_20x20", ARROW, {20, 20}, 0},
            {"arrow_border_1", ARROW, {0, 0}, 1},        {"arrow_border_3", ARROW, {0, 0}, 3},
            {"arrow_border_6", ARROW, {0, 0}, 6},        {"two_blobs_border_2", TWO_BLOBS, {0, 0}, 2},
            {"edge_plain", AT_THE_EDGE, {0, 0}, 0},      {"edge_border_2", AT_THE_EDGE, {0, 0}, 2},
            {"two_blobs_border_5", TWO_BLOBS, {0, 0}, 5}};
}

QString golden_file(const Golden& golden)
{
    return QStringLiteral(QUARVEL_TESTS_DIR "/qt/golden/") + golden.name + ".png";
}

} // namespace

TEST(trim_blank, returns_a_null_image_as_it_is)
{
    for (const int border : {-1, 0, 3}) {
        EXPECT_TRUE(trim_blank({}, {0, 0}, border).isNull());
        EXPECT_TRUE(trim_blank({}, {9, 9}, border).isNull());
    }
}

TEST(trim_blank, cuts_out_a_lone_dot_with_one_line_of_background_on_each_side)
{
    const QImage result = trim_blank(with_dots({101, 77}, {{50, 38}}), {0, 0}, 0);
    EXPECT_EQ((Picture{"...", ".#.", "..."}), shown(result));
}

TEST(trim_blank, centres_the_content_in_the_minimum_size)
{
    const QImage dot = with_dots({101, 77}, {{50, 38}});
    EXPECT_EQ((Picture{".........", ".........", ".........", ".........", "....#....", ".........",
                       ".........", ".........", "........."}),
              shown(trim_blank(dot, {9, 9}, 0)));
    EXPECT_EQ((Picture{"....", ".#..", "...."}),
              shown(trim_blank(dot, {4, 3}, 0))); // the odd one to the right
    EXPECT_EQ((Picture{"...", ".#.", "...", "..."}), shown(trim_blank(dot, {3, 4}, 0)));
    EXPECT_EQ((Picture{".....", "..#..", "....."}), shown(trim_blank(dot, {5, 1}, 0)));
}

TEST(trim_blank, leaves_what_has_the_minimum_size_as_it_is)
{
    const QImage dot = with_dots({101, 77}, {{50, 38}});
    for (const QSize min_size : {QSize(3, 3), QSize(2, 2), QSize(0, 0), QSize(), QSize(-7, 3)})
        EXPECT_EQ((Picture{"...", ".#.", "..."}), shown(trim_blank(dot, min_size, 0)));
}

TEST(trim_blank, fills_with_zeros_beyond_the_image)
{
    EXPECT_EQ((Picture{"     ", " ... ", " .#. ", " ... ", "     "}),
              trimmed({"...", ".#.", "..."}, 0, {5, 5}));
    EXPECT_EQ((Picture{" #.  "}), trimmed({"#."}, 0, {5, 1}));
}

TEST(trim_blank, ignores_the_minimum_with_a_border)
{
    EXPECT_EQ(trimmed({".....", "..#..", "....."}, 2), trimmed({".....", "..#..", "....."}, 2, {50, 60}));
}

TEST(trim_blank, takes_every_border_below_one_for_none)
{
    const QImage dot = with_dots({7, 7}, {{3, 3}});
    for (const int border : {0, -1, -6, std::numeric_limits<int>::min()})
        EXPECT_EQ((Picture{"...", ".#.", "..."}), shown(trim_blank(dot, {0, 0}, border)));
}

TEST(trim_blank, takes_the_most_frequent_corner_for_the_background_and_of_equals_the_first)
{
    // The corners in their order, and which of them is the background: what is not, is content.
    const std::pair<const char*, char> corners[] = {
        {"....", '.'}, {"...#", '.'}, {"..#.", '.'}, {".#..", '.'}, {"#...", '.'}, {"..##", '.'},
        {".#.#", '.'}, {".##.", '.'}, {"##..", '#'}, {"#.#.", '#'}, {"#..#", '#'}, {".##o", '#'},
        {".#o#", '#'}, {".o##", '#'}, {".or#", '.'}, {".o.#", '.'}, {"#o.#", '#'}, {".o#o", 'o'}};
    for (const auto& [four, background] : corners) {
        SCOPED_TRACE(four);
        const std::string between(5, background);
        Picture picture(7, background + between + background);
        picture[0] = four[0] + between + four[1];
        picture[6] = four[2] + between + four[3];
        picture[3][3] = 'h';
        const QImage image = drawn(picture);
        // Beside the box there would be more of the colour that was taken for the background.
        EXPECT_EQ(background, shown(trim_blank(image, {0, 0}, 1))[0][0]);
    }
}

TEST(trim_blank, keeps_no_line_where_the_content_touches_the_edge)
{
    EXPECT_EQ((Picture{"..", "#.", ".."}), trimmed({".....", ".....", "#....", "....."}));
    EXPECT_EQ((Picture{"..", ".#", ".."}), trimmed({".....", ".....", "....#", "....."}));
    EXPECT_EQ((Picture{".#.", "..."}), trimmed({"..#..", ".....", "....."}));
    EXPECT_EQ((Picture{"...", ".#."}), trimmed({".....", ".....", "..#.."}));
    EXPECT_EQ((Picture{".#.", "###", ".#."}), trimmed({".#.", "###", ".#."}));
}

TEST(trim_blank, keeps_two_by_two_pixels_of_nothing_but_background)
{
    for (int width = 1; width <= 4; ++width)
        for (int height = 1; height <= 4; ++height)
            EXPECT_EQ(QSize(std::min(width, 2), std::min(height, 2)),
                      trim_blank(with_dots({width, height}, {}), {0, 0}, 0).size());
    // In the bottom right corner, beyond which there is nothing to widen it with.
    EXPECT_EQ((Picture{"... ", "... ", "    "}), trimmed(Picture(5, "....."), 0, {4, 3}));
}

TEST(trim_blank, tells_colours_apart_by_a_single_bit)
{
    for (int bit = 0; bit < 32; ++bit) {
        QImage image(9, 9, QImage::Format_ARGB32);
        image.fill(0x7F55AA33);
        image.setPixel(4, 4, 0x7F55AA33 ^ (1U << bit));
        EXPECT_EQ(QSize(3, 3), trim_blank(image, {0, 0}, 0).size()) << bit;
    }
}

TEST(trim_blank, surrounds_a_dot_with_a_border_of_one)
{
    const Picture result = trimmed({".......", ".......", "...#...", ".......", "......."}, 1);
    // The halo reaches one pixel from the dot; the left and the top side of the border are spared.
    EXPECT_EQ((Picture{".....",   //
                       ".... ",   //
                       "..#. ",   //
                       ".... ",   //
                       ".    "}), //
              result);
}

TEST(trim_blank, loses_a_figure_of_fewer_rows_than_the_border)
{
    EXPECT_EQ((Picture{".......", ".......", "..     ", "..     ", "..     ", "..     ", "..     "}),
              trimmed({".....", ".....", "..#..", ".....", "....."}, 2));
    // Of two rows the lower one is seen, and keeps the upper one.
    EXPECT_EQ(
        (Picture{".......", ".......", "...... ", "...#.. ", "...#.. ", "...... ", "...... ", "..     "}),
        trimmed({".....", "..#..", "..#..", ".....", "....."}, 2));
}

TEST(trim_blank, gives_the_plain_crop_the_format_of_the_image_and_a_border_argb32)
{
    const QImage dot = with_dots({9, 9}, {{4, 4}});
    for (int i = QImage::Format_Mono; i < QImage::NImageFormats; ++i) {
        const auto format = static_cast<QImage::Format>(i);
        SCOPED_TRACE(i);
        const QImage image = dot.convertToFormat(format);
        const QImage plain = trim_blank(image, {0, 0}, 0);
        EXPECT_EQ(format, plain.format());
        EXPECT_EQ(image.colorTable(), plain.colorTable());
        EXPECT_EQ(QImage::Format_ARGB32, trim_blank(image, {0, 0}, 1).format());
    }
}

TEST(trim_blank, leaves_the_callers_image_alone)
{
    const QImage image = with_dots({9, 9}, {{4, 4}});
    const QImage before = image.copy();
    trim_blank(image, {0, 0}, 2);
    trim_blank(image, {20, 20}, 0);
    EXPECT_EQ(before, image);
    EXPECT_EQ(image.size(), trim_blank(image, {9, 9}, 0).size());
}

namespace {

QImage random_image(std::mt19937& random)
{
    const auto below = [&random](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    const int longest = below(8) == 0 ? 40 : 12;
    const QSize size(1 + below(longest), 1 + below(longest));
    const QRgb colours[] = {WHITE, BLACK, GREY, RED, CLEAR, 0x80402010, 0xFF123456, 0xFE123456};
    const auto colour = [&] { return colours[below(8)]; };
    const QRgb background = colour();
    const QRgb other = colour();

    QImage image(size, QImage::Format_ARGB32);
    image.fill(background);
    const int kind = below(6);
    if (kind == 0) { // two colours, everywhere
        for (int i = 0; i < size.width() * size.height(); ++i)
            if (below(2) == 0)
                image.setPixel(i % size.width(), i / size.width(), other);
    } else if (kind == 1) { // a full rectangle
        const QPoint from(below(size.width()), below(size.height()));
        for (int y = from.y(); y <= from.y() + below(size.height()) && y < size.height(); ++y)
            for (int x = from.x(); x < size.width() && below(6) != 0; ++x)
                image.setPixel(x, y, other);
    } else // dots
        for (int i = below(7); i > 0; --i)
            image.setPixel(below(size.width()), below(size.height()), colour());

    const auto format = static_cast<QImage::Format>(1 + below(QImage::NImageFormats - 1));
    return image.convertToFormat(format);
}

/// Bytes as no conversion would make them: padding bits, colours above their alpha. A few values only, so
/// that there is a background.
QImage raw_image(std::mt19937& random)
{
    const auto below = [&random](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    const QImage::Format formats[] = {
        QImage::Format_RGBX8888, QImage::Format_ARGB4444_Premultiplied, QImage::Format_ARGB8565_Premultiplied,
        QImage::Format_RGB30,    QImage::Format_A2BGR30_Premultiplied,  QImage::Format_RGBX64};
    QImage image(1 + below(12), 1 + below(12), formats[below(6)]);
    const int bytes_a_pixel = image.depth() / 8;
    const auto background = static_cast<uchar>(below(256));
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const auto value = static_cast<uchar>(below(20) == 0 ? below(256) : background);
            for (int i = 0; i < bytes_a_pixel; ++i)
                image.scanLine(y)[x * bytes_a_pixel + i] = value;
        }
    return image;
}

void compare(const QImage& image, std::mt19937& random, Met& met)
{
    const int border = static_cast<int>(random() % 8) - 1;
    const auto side = [&random] { return static_cast<int>(random() % 26) - 2; };
    const int min_width = side();
    const QSize min_size(min_width, side());
    SCOPED_TRACE(testing::Message() << "format " << image.format() << ", border " << border << ", at least "
                                    << min_size.width() << " x " << min_size.height() << ", of "
                                    << testing::PrintToString(Pixels(image)));
    const QImage result = trim_blank(image, min_size, border);
    ASSERT_EQ(border < 1 ? image.format() : QImage::Format_ARGB32, result.format());
    ASSERT_EQ(reference(image, min_size, border, &met), Pixels(result));
}

} // namespace

TEST(trim_blank, agrees_with_the_second_way_on_random_images_of_every_format)
{
    const unsigned seed = 63;
    std::mt19937 random(seed);
    Met met;
    for (int run = 0; run < 12000 && !HasFatalFailure(); ++run) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", run " << run);
        compare(random_image(random), random, met);
    }
    EXPECT_LT(100000, met.cut);
    EXPECT_LT(100000, met.spared);
    EXPECT_LT(1000, met.widened);
    EXPECT_EQ(0, met.seeds);
}

TEST(trim_blank, agrees_with_the_second_way_where_the_background_cannot_be_painted)
{
    const unsigned seed = 64;
    std::mt19937 random(seed);
    Met met;
    for (int run = 0; run < 4000 && !HasFatalFailure(); ++run) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", run " << run);
        compare(raw_image(random), random, met);
    }
    EXPECT_LT(1000, met.seeds); // column b has content now, for every other column as well
    EXPECT_LT(10000, met.cut);
}

TEST(trim_blank, paints_the_border_of_indexed_images_too)
{
    // Index 0, with which the copy is filled, is no background.
    QImage image(5, 5, QImage::Format_Indexed8);
    image.setColorTable({RED, WHITE, BLACK, WHITE});
    image.fill(1);
    image.setPixel(2, 2, 2);
    image.setPixel(4, 0, 3); // white as well
    EXPECT_EQ(trimmed({".....", ".....", "..#..", ".....", "....."}, 1), shown(trim_blank(image, {0, 0}, 1)));
    QImage mono(5, 5, QImage::Format_Mono);
    mono.setColorTable({BLACK, WHITE});
    mono.fill(1);
    mono.setPixel(2, 2, 0);
    EXPECT_EQ(trimmed({".....", ".....", "..#..", ".....", "....."}, 1), shown(trim_blank(mono, {0, 0}, 1)));
}

TEST(trim_blank, makes_the_pictures_that_were_looked_at)
{
    // With this set they are drawn anew, by the second way: to be looked at before they are kept.
    const bool draw = qEnvironmentVariableIsSet("QUARVEL_DRAW_PICTURES");
    for (const Golden& golden : goldens()) {
        SCOPED_TRACE(golden.name);
        const QImage image = drawn(golden.picture);
        Met met;
        if (draw) {
            EXPECT_TRUE(
                as_image(reference(image, golden.min_size, golden.border, &met)).save(golden_file(golden)));
        }
        const QImage expected(golden_file(golden));
        ASSERT_FALSE(expected.isNull());
        EXPECT_EQ(Pixels(expected), Pixels(trim_blank(image, golden.min_size, golden.border)));
    }
}
