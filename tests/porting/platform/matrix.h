#pragma once

#include <array>
#include <cmath>

class SVec : public std::array<double, 3> {
public:
    SVec() : std::array<double, 3>{} {}
    SVec(double first, double second, double third) : std::array<double, 3>{first, second, third} {}
    SVec operator+(const SVec& o) const { return {at(0) + o[0], at(1) + o[1], at(2) + o[2]}; }
    SVec operator-(const SVec& o) const { return {at(0) - o[0], at(1) - o[1], at(2) - o[2]}; }
};

inline double norm(const SVec& v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

class SMat {
public:
    SMat() = default;
    SMat(const SVec& a, const SVec& b, const SVec& c) : rows{a, b, c} {}
    double operator()(unsigned i, unsigned j) const { return rows.at(i).at(j); }
    SVec operator*(const SVec& v) const { return {dot(rows[0], v), dot(rows[1], v), dot(rows[2], v)}; }

private:
    static double dot(const SVec& a, const SVec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
    std::array<SVec, 3> rows;
};

inline SMat transpose(const SMat& m)
{
    return {{m(0, 0), m(1, 0), m(2, 0)}, {m(0, 1), m(1, 1), m(2, 1)}, {m(0, 2), m(1, 2), m(2, 2)}};
}

class STranspose : public SMat {
public:
    explicit STranspose(const SMat& m) : SMat(transpose(m)) {}
};

class OrthoMat : public SMat {
public:
    OrthoMat() = default;
    explicit OrthoMat(const SMat& m) : SMat(m) {}
    OrthoMat(double lat, double lon)
        : SMat({-std::sin(lat) * std::cos(lon), -std::sin(lon), -std::cos(lat) * std::cos(lon)},
               {-std::sin(lat) * std::sin(lon), std::cos(lon), -std::cos(lat) * std::sin(lon)},
               {std::cos(lat), 0.0, -std::sin(lat)})
    {
    }
};
