#pragma once

#include "util/export.h"

#include <QImage>
#include <QSize>

/// What QImage does not do.
namespace Qt_image_utils {

/// Crops an image to its content: cuts off the rows and columns at its edges that hold nothing
/// but background.
///
/// The background is the most frequent of the four corners' colours; of equally frequent ones the first in
/// the order top-left, top-right, bottom-left, bottom-right. Colours are compared as QImage::pixel() gives
/// them, without a tolerance. One line of background is left on each side where there was any. Of an image
/// that is all background the bottom-right corner is left, 2 x 2 pixels,
/// fewer only where the image itself has fewer.
///
/// Without a border the result has the image's format. A side below the minimum is brought up to it, by half
/// the difference to the left or to the top (rounded down), by the rest on the other side; where this leads
/// out of the image, the result is filled as by QImage::copy(), with zeros.
///
/// With a border of b pixels the result is an ARGB32 image, b pixels larger on each side than the content
/// with its lines of background, whatever the minimum. The border is background. Then a pixel becomes
/// transparent, content included, unless there is content in the square that reaches from it b columns to
/// either side and b rows up and down. Two things about this are meant: the left and the top side of the
/// border are spared, and the upper b rows within the border are not looked at,
/// so a figure of less than b rows vanishes.
///
/// @param image     a null one is returned as it is
/// @param min_size  of the result without a border, in pixels
/// @param border    in pixels; below 1 there is none
QUARVEL_EXPORT QImage trim_blank(QImage image, QSize min_size, int border);

} // namespace Qt_image_utils
