#include "tests/support/Child_process.h"
#include "tests/support/Reserved_port.h"
#include "tests/support/Temporary_folder.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

Child_process start(const std::vector<std::string>& arguments)
{
    return {NMEA_CLIENT_EMULATOR, NMEA_CLIENT, arguments};
}

std::string gga(int second)
{
    char body[128];
    std::snprintf(body, sizeof body,
                  "GPGGA,1200%02d.00,4005.000000,N,10508.000000,W,4,12,0.8,1600.0,M,-20.0,M,,", second);
    unsigned sum = 0;
    for (const char* c = body; *c != 0; ++c)
        sum ^= static_cast<unsigned char>(*c);
    char sentence[160];
    std::snprintf(sentence, sizeof sentence, "$%s*%02X\r\n", body, sum & 0xFFU);
    return sentence;
}

/// A receiver that serves one client at a time.
class Receiver {
public:
    Receiver()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_TRUE(bind(listening, any, size) == 0 && listen(listening, 5) == 0 &&
                    getsockname(listening, any, &size) == 0);
        port = ntohs(address.sin_port);
    }
    ~Receiver()
    {
        hang_up();
        close(listening);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void answer() { client = accept(listening, nullptr, nullptr); }
    void say(const std::string& text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), send(client, text.data(), text.size(), MSG_NOSIGNAL));
    }
    void hang_up()
    {
        if (client >= 0)
            close(client);
        client = -1;
    }
    void reset()
    {
        const linger at_once{1, 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        hang_up();
    }

    int port = 0;

private:
    int listening = socket(AF_INET, SOCK_STREAM, 0);
    int client = -1;
};

} // namespace

TEST(nmea_client, prints_a_line_for_each_position)
{
    Receiver receiver;
    Child_process program = start({"127.0.0.1", std::to_string(receiver.port), "--fixes", "3"});
    receiver.answer();
    receiver.say(gga(1) + "$GPGSV,damaged*00\r\n" + gga(2) + gga(4));
    EXPECT_EQ("     0.00 s    40.08333333 -105.13333333  1580.000 m", program.line());
    EXPECT_THAT(program.line(), StartsWith("     1.00 s"));
    EXPECT_THAT(program.line(), StartsWith("     3.00 s"));
    EXPECT_EQ("3 positions of 3 sentences; 0 without a position, 1 damaged", program.line());
    EXPECT_EQ(0, program.status());
}

TEST(nmea_client, connects_again_when_the_receiver_hangs_up_or_resets)
{
    Receiver receiver;
    Child_process program = start({"127.0.0.1", std::to_string(receiver.port)});
    receiver.answer();
    receiver.say(gga(1));
    EXPECT_THAT(program.line(), StartsWith("     0.00 s"));
    receiver.hang_up();
    receiver.answer();
    receiver.say(gga(2));
    EXPECT_THAT(program.line(), StartsWith("     1.00 s"));
    receiver.reset();
    receiver.answer();
    receiver.say(gga(3));
    EXPECT_THAT(program.line(), StartsWith("     2.00 s"));
    program.signal(SIGTERM);
    EXPECT_THAT(program.line(), StartsWith("3 positions"));
    EXPECT_EQ(0, program.status());
}

TEST(nmea_client, takes_a_sentence_in_pieces_and_over_a_lost_connection_loses_only_that_one)
{
    Receiver receiver;
    Child_process program = start({"127.0.0.1", std::to_string(receiver.port), "--fixes", "3"});
    receiver.answer();
    const std::string first = gga(1);
    receiver.say(first.substr(0, 20));
    receiver.say(first.substr(20));
    EXPECT_THAT(program.line(), StartsWith("     0.00 s"));
    receiver.say(gga(2).substr(0, 30));
    receiver.hang_up();
    receiver.answer();
    receiver.say(gga(3) + gga(4));
    EXPECT_THAT(program.line(), StartsWith("     2.00 s"));
    EXPECT_THAT(program.line(), StartsWith("     3.00 s"));
    EXPECT_THAT(program.line(), HasSubstr("positions of"));
}

TEST(nmea_client, reads_what_socat_serves)
{
    if (std::system("command -v socat >/dev/null") != 0)
        GTEST_SKIP() << "socat is not here";
    const Temporary_folder folder;
    const std::string file = folder.file("positions.nmea", gga(1) + gga(2) + gga(3));
    const Reserved_port reserved;
    const int port = reserved.number();
    Child_process server("", "socat",
                         {"-u", "OPEN:" + file, "TCP-LISTEN:" + std::to_string(port) + ",reuseaddr"});
    Child_process program = start({"127.0.0.1", std::to_string(port), "--fixes", "3"});
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(program.line(), HasSubstr("40.08333333 -105.13333333"));
    EXPECT_THAT(program.line(), StartsWith("3 positions of 3 sentences"));
    EXPECT_EQ(0, program.status());
}

TEST(nmea_client, ends_after_the_time_it_was_given_though_nobody_answers)
{
    Receiver free_port;
    Child_process program = start({"127.0.0.1", std::to_string(free_port.port), "--seconds", "1"});
    EXPECT_EQ("0 positions of 0 sentences; 0 without a position, 0 damaged", program.line());
    EXPECT_EQ(0, program.status());
}

TEST(nmea_client, refuses_what_it_does_not_know)
{
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{},
                                                  {"host"},
                                                  {"host", "1", "2"},
                                                  {"host", "0"},
                                                  {"host", "port"},
                                                  {"host", "70000"},
                                                  {"--fixes"},
                                                  {"--unknown", "host", "1"}}) {
        Child_process program = start(wrong);
        EXPECT_EQ("", program.line());
        EXPECT_EQ(1, program.status());
    }
    Child_process help = start({"--help"});
    EXPECT_THAT(help.line(), StartsWith("usage: nmea_client"));
    EXPECT_EQ(0, help.status());
}
