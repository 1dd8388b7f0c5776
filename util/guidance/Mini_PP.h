#pragma once

#include "platform/Math2D.h"
#include "util/GPS/Coordinate_converter.h"
#include "util/export.h"

/// Guidance along a straight line from A to B.
///
/// A is the centre of the inherited converter; B is kept in its plane. Positions are first brought into that
/// plane with convPointLLH2Local() or convPointXYZ2Local() (first coordinate north, second east, metres),
/// then asked about. The questions answer for whatever is stored: before both ends are set, for zeros.
///
/// A plain value, for one thread at a time.
class QUARVEL_EXPORT Mini_PP : public Coordinate_converter {
public:
    /// No ends and no centre.
    Mini_PP();

    /// A alone; a Point3D is earth-centred.
    /// @{
    Mini_PP(PointLLH a); // NOLINT(google-explicit-constructor)
    Mini_PP(Point3D a);  // NOLINT(google-explicit-constructor)
    /// @}

    /// As set_start() and then set_finish(), whose answer is lost.
    /// @{
    Mini_PP(PointLLH a, PointLLH b);
    Mini_PP(Point3D a, Point3D b);
    /// @}

    /// Moves A. B keeps its place relative to A: set it again afterwards.
    /// @{
    void set_start(PointLLH a);
    void set_start(Point3D a);
    /// @}

    /// Sets B.
    ///
    /// @return false when the converter has no centre; the old B then stays in place but counts as not set
    /// @{
    bool set_finish(PointLLH b);
    bool set_finish(Point3D b);
    /// @}

    /// Forgets both ends; the converter keeps its centre, so B can be set again before A.
    void reset();

    /// The compass heading from A to B in degrees, from 0 up to 360, which rounding can reach just west of
    /// north; 90 while both ends coincide.
    double ab_heading();

    /// The distance along the line from A, metres: negative behind A, beyond B more than the line's length.
    double ab_atrack(Math2D::Point p);

    /// The distance from the line, metres: positive to the right when looking from A to B.
    double ab_xtrack(Math2D::Point p);

    double dist_from_start(Math2D::Point p);  ///< straight in the plane, metres
    double dist_from_finish(Math2D::Point p); ///< straight in the plane, metres

    /// Checks the headings of four short lines near 27 S, 153 E and prints them, with a sweep along one of
    /// them, to standard output.
    ///
    /// @return 0 when every heading is right, -1 otherwise
    static int unit_test();

protected:
    bool start_set = false;  ///< also after an A that gave no centre
    bool finish_set = false; ///< what the last set_finish() answered
    Math2D::Line line;       ///< in the converter's plane; its start is always (0, 0)
};
