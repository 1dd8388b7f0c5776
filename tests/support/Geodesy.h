#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

/// Three outputs of a conversion, sentinels until something is written.
struct Out {
    double a = -11.0;
    double b = -22.0;
    double c = -33.0;

    bool untouched() const { return a == -11.0 && b == -22.0 && c == -33.0; }
};

inline void expect_out(double a, double b, double c, const Out& out, double tolerance = 0.0)
{
    EXPECT_NEAR(a, out.a, tolerance);
    EXPECT_NEAR(b, out.b, tolerance);
    EXPECT_NEAR(c, out.c, tolerance);
}

template <typename CONVERTER>
CONVERTER centered_at(double lat, double lon, double h)
{
    CONVERTER converter;
    converter.setLocalCenterLLH(lat, lon, h);
    return converter;
}

/// Random numbers and angles, places spread evenly over the sphere.
class Random_places {
public:
    explicit Random_places(unsigned seed) : generator(seed) {}
    double between(double low, double high)
    {
        return low + (high - low) * std::uniform_real_distribution<double>(0.0, 1.0)(generator);
    }
    double latitude() { return std::asin(between(-1.0, 1.0)); }
    double longitude() { return between(-3.141592653589793, 3.141592653589793); }

private:
    std::mt19937 generator;
};

/// What to say of a random case that fails.
inline std::string trace(unsigned seed, int i)
{
    return "seed " + std::to_string(seed) + ", case " + std::to_string(i);
}
