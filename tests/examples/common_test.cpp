#include "examples/common/Nmea.h"

#include <gmock/gmock.h>

#include <QFile>

#include <random>
#include <string>

namespace {

std::string sentence(const std::string& body)
{
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    char checksum[3];
    std::snprintf(checksum, sizeof checksum, "%02X", sum & 0xFFU);
    return "$" + body + "*" + checksum + "\r\n";
}

std::string gga(int second, int quality = 4)
{
    char body[128];
    std::snprintf(body, sizeof body,
                  "GPGGA,1200%02d.00,4005.000000,N,10508.000000,W,%d,12,0.8,1600.0,M,-20.0,M,,", second,
                  quality);
    return sentence(body);
}

std::string rmc(int second)
{
    char body[128];
    std::snprintf(body, sizeof body, "GPRMC,1200%02d.00,A,4005.000000,N,10508.000000,W,5.0,0.0,010126,,,A",
                  second);
    return sentence(body);
}

std::vector<Fix> fixes_of(Nmea_stream& stream, const std::string& text)
{
    return stream.take(text.data(), static_cast<int>(text.size()));
}

} // namespace

TEST(Nmea_stream, makes_a_fix_of_each_position)
{
    Nmea_stream stream;
    const auto fixes = fixes_of(stream, gga(1) + gga(2, 5) + gga(3, 2) + gga(5, 1));
    ASSERT_EQ(4U, fixes.size());
    EXPECT_DOUBLE_EQ(0.0, fixes[0].time_s);
    EXPECT_DOUBLE_EQ(4.0, fixes[3].time_s);
    EXPECT_NEAR(40.0 + 5.0 / 60.0, fixes[0].position.lat / RADIANS_PER_DEGREE, 1e-9);
    EXPECT_NEAR(-105.0 - 8.0 / 60.0, fixes[0].position.lon / RADIANS_PER_DEGREE, 1e-9);
    EXPECT_DOUBLE_EQ(1580.0, fixes[0].position.height);
    EXPECT_EQ(Quality::rtk_fixed, fixes[0].quality);
    EXPECT_EQ(Quality::rtk_float, fixes[1].quality);
    EXPECT_EQ(Quality::differential, fixes[2].quality);
    EXPECT_EQ(Quality::plain, fixes[3].quality);
    EXPECT_EQ(4, stream.sentences);
}

TEST(Nmea_stream, takes_pieces_of_any_size)
{
    std::string text;
    for (int second = 0; second < 60; ++second)
        text += gga(second);
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        Nmea_stream stream;
        std::size_t fixes = 0;
        for (std::size_t from = 0; from < text.size();) {
            const std::size_t size = std::min<std::size_t>(1 + random() % 200, text.size() - from);
            fixes += fixes_of(stream, text.substr(from, size)).size();
            from += size;
        }
        ASSERT_EQ(60U, fixes);
        ASSERT_EQ(0, stream.damaged);
    }
}

TEST(Nmea_stream, uses_rmc_until_the_first_gga)
{
    Nmea_stream stream;
    EXPECT_EQ(2U, fixes_of(stream, rmc(1) + rmc(2)).size());
    EXPECT_EQ(1U, fixes_of(stream, gga(3)).size());
    EXPECT_EQ(0U, fixes_of(stream, rmc(4)).size());
    EXPECT_EQ(1U, fixes_of(stream, gga(4)).size());
}

TEST(Nmea_stream, counts_what_it_cannot_use)
{
    Nmea_stream stream;
    std::string damaged = gga(2);
    damaged[20] = '9';
    EXPECT_EQ(1U, fixes_of(stream, gga(1) + damaged + gga(3, 0) + "noise\r\n").size());
    EXPECT_EQ(2, stream.sentences);
    EXPECT_EQ(1, stream.damaged);
    EXPECT_EQ(1, stream.without_fix);
    EXPECT_TRUE(fixes_of(stream, std::string(100000, 'x')).empty());
    EXPECT_EQ(2, stream.damaged);
    EXPECT_EQ(1U, fixes_of(stream, "\r\n" + gga(4)).size());
}

TEST(Nmea_stream, tells_a_listener_of_every_good_sentence)
{
    QList<QByteArray> heard;
    Nmea_stream stream([&heard](const QByteArray& each) { heard += nmea_kind(each); });
    const std::string gsv = sentence("GPGSV,1,1,01,05,40,120,45");
    fixes_of(stream, gga(1) + gsv + "$GPGSV,broken*00\r\n" + rmc(1));
    EXPECT_EQ(QList<QByteArray>({"GGA", "GSV", "RMC"}), heard);
}

TEST(Nmea_stream, goes_on_over_midnight)
{
    Nmea_stream stream;
    const std::string before =
        sentence("GPGGA,235959.00,4005.000000,N,10508.000000,W,1,12,0.8,1600.0,M,-20.0,M,,");
    const std::string after =
        sentence("GPGGA,000001.00,4005.000000,N,10508.000000,W,1,12,0.8,1600.0,M,-20.0,M,,");
    const auto fixes = fixes_of(stream, before + after);
    ASSERT_EQ(2U, fixes.size());
    EXPECT_DOUBLE_EQ(2.0, fixes[1].time_s);
}
