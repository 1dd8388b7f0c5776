#include "platform/matrix.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <type_traits>

namespace {

constexpr double PI = 3.141592653589793;

static_assert(sizeof(SVec) == 24 && sizeof(SMat) == 72 && sizeof(OrthoMat) == 72);
static_assert(std::is_base_of_v<SMat, OrthoMat> && std::is_base_of_v<SMat, STranspose>);

SMat counted()
{
    return {{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}, {7.0, 8.0, 10.0}};
}

void expect_vector(double first, double second, double third, const SVec& v, double tolerance = 0.0)
{
    EXPECT_NEAR(first, v[0], tolerance);
    EXPECT_NEAR(second, v[1], tolerance);
    EXPECT_NEAR(third, v[2], tolerance);
}

SVec column(const SMat& m, unsigned j)
{
    return {m(0, j), m(1, j), m(2, j)};
}

double dot(const SVec& a, const SVec& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

SVec cross(const SVec& a, const SVec& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

} // namespace

TEST(SVec, is_zero_when_default_built)
{
    expect_vector(0.0, 0.0, 0.0, SVec());
}

TEST(SVec, keeps_three_doubles_in_order)
{
    expect_vector(1.5, -2.5, 3.5, SVec(1.5, -2.5, 3.5));
}

TEST(SVec, adds_and_subtracts_by_component)
{
    const SVec a(1.0, 2.0, 3.0);
    const SVec b(0.5, -4.0, 16.0);
    expect_vector(1.5, -2.0, 19.0, a + b);
    expect_vector(0.5, 6.0, -13.0, a - b);
}

TEST(SVec, has_the_euclidean_length_as_its_norm)
{
    EXPECT_EQ(7.0, norm(SVec(2.0, -3.0, 6.0)));
    EXPECT_EQ(9.0, norm(SVec(-4.0, 4.0, -7.0)));
    EXPECT_EQ(0.0, norm(SVec()));
}

TEST(SMat, is_zero_when_default_built)
{
    expect_vector(0.0, 0.0, 0.0, SMat() * SVec(1.0, 2.0, 3.0));
    for (unsigned i = 0; i < 3; ++i)
        expect_vector(0.0, 0.0, 0.0, column(SMat(), i));
}

TEST(SMat, multiplies_a_vector_row_by_row)
{
    expect_vector(321.0, 654.0, 1087.0, counted() * SVec(1.0, 10.0, 100.0));
}

TEST(SMat, turns_rows_into_columns)
{
    const SMat turned = transpose(counted());
    expect_vector(1.0, 2.0, 3.0, column(turned, 0));
    expect_vector(4.0, 5.0, 6.0, column(turned, 1));
    expect_vector(7.0, 8.0, 10.0, column(turned, 2));
}

TEST(STranspose, multiplies_like_the_transpose)
{
    expect_vector(741.0, 852.0, 1063.0, STranspose(counted()) * SVec(1.0, 10.0, 100.0));
}

TEST(OrthoMat, takes_over_a_matrix_as_it_is)
{
    expect_vector(321.0, 654.0, 1087.0, OrthoMat(counted()) * SVec(1.0, 10.0, 100.0));
}

TEST(OrthoMat, points_north_east_and_down_at_chosen_places)
{
    const OrthoMat origin(0.0, 0.0);
    expect_vector(0.0, 0.0, 1.0, column(origin, 0));
    expect_vector(0.0, 1.0, 0.0, column(origin, 1));
    expect_vector(-1.0, 0.0, 0.0, column(origin, 2));

    const OrthoMat east(0.0, PI / 2.0); // below latitude 0, longitude 90 degrees lies -y
    expect_vector(0.0, 0.0, 1.0, column(east, 0), 1e-15);
    expect_vector(-1.0, 0.0, 0.0, column(east, 1), 1e-15);
    expect_vector(0.0, -1.0, 0.0, column(east, 2), 1e-15);

    const OrthoMat pole(PI / 2.0, 0.0); // north goes on over the pole, away from longitude 0
    expect_vector(-1.0, 0.0, 0.0, column(pole, 0), 1e-15);
    expect_vector(0.0, 1.0, 0.0, column(pole, 1), 1e-15);
    expect_vector(0.0, 0.0, -1.0, column(pole, 2), 1e-15);
}

TEST(OrthoMat, is_made_of_the_normal_the_axis_and_their_products_everywhere)
{
    const unsigned seed = 20251;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> latitude(-1.55, 1.55);
    std::uniform_real_distribution<double> longitude(-7.0, 7.0);
    for (int i = 0; i < 10000; ++i) {
        const double lat = latitude(generator);
        const double lon = longitude(generator);
        const SVec up(std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat));
        const SVec eastwards = cross(SVec(0.0, 0.0, 1.0), up); // as long as the cosine of the latitude
        const SVec northwards = cross(up, eastwards);
        const OrthoMat m(lat, lon);
        const double tolerance = 5e-16 / std::cos(lat);
        const double length = norm(eastwards);
        for (unsigned k = 0; k < 3; ++k) {
            ASSERT_NEAR(northwards[k] / length, m(k, 0), tolerance) << "seed " << seed << ", case " << i;
            ASSERT_NEAR(eastwards[k] / length, m(k, 1), tolerance) << "seed " << seed << ", case " << i;
            ASSERT_NEAR(-up[k], m(k, 2), 5e-16) << "seed " << seed << ", case " << i;
        }
    }
}

TEST(OrthoMat, is_a_rotation)
{
    for (const double lat : {-1.5, -0.7, 0.0, 0.3, PI / 2.0})
        for (const double lon : {-3.0, -0.5, 0.0, 2.5}) {
            const OrthoMat m(lat, lon);
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = 0; j < 3; ++j)
                    EXPECT_NEAR(i == j ? 1.0 : 0.0, dot(column(m, i), column(m, j)), 1e-15);
            EXPECT_NEAR(1.0, dot(cross(column(m, 0), column(m, 1)), column(m, 2)), 1e-15);
        }
}

TEST(OrthoMat, is_undone_by_its_transpose)
{
    const OrthoMat m(0.7, -2.3);
    expect_vector(3.0, -4.0, 5.0, STranspose(m) * (m * SVec(3.0, -4.0, 5.0)), 4e-15);
    expect_vector(3.0, -4.0, 5.0, OrthoMat(transpose(m)) * (m * SVec(3.0, -4.0, 5.0)), 4e-15);
}
