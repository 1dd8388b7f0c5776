#pragma once

#include <cmath>

/// @file
/// Vectors and matrices of three dimensions, as far as the converters need them. Plain values; no index is
/// checked.

/// Three doubles: a vector or a point in space, zero when default-built.
class SVec {
public:
    SVec() = default;
    /// Elements 0, 1 and 2.
    SVec(double first, double second, double third) : elements{first, second, third} {}

    double operator[](unsigned i) const { return elements[i]; } ///< i from 0 to 2 (not checked)

    /// Element by element.
    /// @{
    SVec operator+(const SVec& other) const
    {
        return {elements[0] + other[0], elements[1] + other[1], elements[2] + other[2]};
    }
    SVec operator-(const SVec& other) const
    {
        return {elements[0] - other[0], elements[1] - other[1], elements[2] - other[2]};
    }
    /// @}

private:
    double elements[3] = {0.0, 0.0, 0.0};
};

/// The Euclidean length.
inline double norm(const SVec& v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

/// A 3 x 3 matrix of doubles, zero when default-built.
class SMat {
public:
    SMat() = default;
    /// Made of its rows, top down.
    SMat(const SVec& row0, const SVec& row1, const SVec& row2) : rows{row0, row1, row2} {}

    /// Element at row `i`, column `j`, each 0 to 2 (not checked).
    double operator()(unsigned i, unsigned j) const { return rows[i][j]; }

    /// The product with a column.
    SVec operator*(const SVec& v) const { return {dot(rows[0], v), dot(rows[1], v), dot(rows[2], v)}; }

private:
    static double dot(const SVec& a, const SVec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

    SVec rows[3];
};

/// Rows for columns; of a rotation, its inverse.
inline SMat transpose(const SMat& m)
{
    return {{m(0, 0), m(1, 0), m(2, 0)}, {m(0, 1), m(1, 1), m(2, 1)}, {m(0, 2), m(1, 2), m(2, 2)}};
}

/// The transpose of a matrix, as a copy that multiplies like one.
class STranspose : public SMat {
public:
    /// Later changes of `m` do not show.
    explicit STranspose(const SMat& m) : SMat(transpose(m)) {}
};

/// An orthonormal 3 x 3 matrix: a rotation.
class OrthoMat : public SMat {
public:
    OrthoMat() = default;

    /// Rotation from local north, east, down at a place to earth-centred axes: its columns are the unit
    /// vectors north, east and down there.
    ///
    /// @param lat, lon  radians, north and east positive
    OrthoMat(double lat, double lon) : OrthoMat(std::sin(lat), std::cos(lat), std::sin(lon), std::cos(lon)) {}

    /// Takes over a matrix that the caller knows to be orthonormal; nothing is checked.
    explicit OrthoMat(const SMat& m) : SMat(m) {}

private:
    OrthoMat(double sin_lat, double cos_lat, double sin_lon, double cos_lon)
        : SMat({-sin_lat * cos_lon, -sin_lon, -cos_lat * cos_lon},
               {-sin_lat * sin_lon, cos_lon, -cos_lat * sin_lon}, {cos_lat, 0.0, -sin_lat})
    {
    }
};
