#pragma once

#include "util/GPS/CoordConv.h"
#include "util/export.h"

/// A CoordConv with named frames: NED (north, east, down, the base's local frame), NEU (north, east, up) and
/// ENU (east, north, up), in metres, for positions and for free vectors.
///
/// `absolute` true: the input is a position relative to the centre, and without a centre the call returns
/// false. `absolute` false: the input is a free vector (a velocity, a baseline), which is only rotated by the
/// frame of the last centre; that needs no centre and always returns true (before any centre was set, the
/// frame is zero and so is the result).
///
/// On false the outputs are untouched, with one deliberate exception: convECEF2NEU and convECEF2ENU then
/// write their `u`, with no meaning. An output may be one of the inputs.
class QUARVEL_EXPORT CConv_plus : public CoordConv {
public:
    /// As the base's, and turn the frame too. An earth-centred point that gives no centre leaves the frame as
    /// it was; a geodetic one does not.
    /// @{
    void setLocalCenterLLH(double lat, double lon, double h);
    void setLocalCenterECEF(double x, double y, double z);
    /// @}

    /// Earth-centred to the frame in the name, and back.
    ///
    /// @param absolute  a position, not a free vector
    /// @return false for a position without a centre
    /// @{
    bool convECEF2NED(double const& x, double const& y, double const& z, double& n, double& e, double& d,
                      bool absolute);
    bool convNED2ECEF(double const& n, double const& e, double const& d, double& x, double& y, double& z,
                      bool absolute);
    bool convECEF2NEU(double const& x, double const& y, double const& z, double& n, double& e, double& u,
                      bool absolute);
    bool convNEU2ECEF(double const& n, double const& e, double const& u, double& x, double& y, double& z,
                      bool absolute);
    bool convECEF2ENU(double const& x, double const& y, double const& z, double& e, double& n, double& u,
                      bool absolute);
    bool convENU2ECEF(double const& e, double const& n, double const& u, double& x, double& y, double& z,
                      bool absolute);
    /// @}

protected:
    SMat ned_to_ecef; ///< its columns are north, east and down at the centre

private:
    bool get_origin(bool absolute, SVec& origin) const;
};
