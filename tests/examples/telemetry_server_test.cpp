#include "tests/support/Child_process.h"
#include "util/net/TCP_client.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <sys/socket.h>

using testing::MatchesRegex;

namespace {

Child_process start(const std::vector<std::string>& arguments)
{
    return {TELEMETRY_SERVER_EMULATOR, TELEMETRY_SERVER, arguments};
}

const char* const NUMBER = "[-+0-9.]+";

std::string telemetry_line_pattern()
{
    std::string pattern;
    for (const char* name : {"t", "lat", "lon", "h", "xtrack", "atrack", "heading", "speed", "steering"})
        pattern += (pattern.empty() ? "" : " ") + std::string(name) + "=" + NUMBER;
    return pattern;
}

int port_of(Child_process& server)
{
    const std::string first = server.line();
    EXPECT_THAT(first, MatchesRegex("serving on port [0-9]+"));
    return std::atoi(first.substr(first.rfind(' ') + 1).c_str());
}

/// A viewer that reads lines.
class Viewer {
public:
    explicit Viewer(int port) : client("127.0.0.1", port) { connected = client.open(); }

    std::string line()
    {
        while (pending.find('\n') == std::string::npos) {
            unsigned char bytes[512];
            const int size = client.read(bytes, sizeof bytes);
            if (size <= 0)
                return "";
            pending.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
        }
        const std::string whole = pending.substr(0, pending.find('\n'));
        pending.erase(0, whole.size() + 1);
        return whole;
    }

    bool connected = false;

private:
    TCP_client client;
    std::string pending;
};

} // namespace

TEST(telemetry_server, serves_every_epoch_to_every_viewer)
{
    Child_process server = start({});
    const int port = port_of(server);
    Viewer first(port);
    Viewer second(port);
    ASSERT_TRUE(first.connected && second.connected);
    // The first was there before the second, and so has all that the second gets.
    const std::string seen_by_second = second.line();
    std::string seen_by_first;
    for (int i = 0; i < 200 && seen_by_first != seen_by_second; ++i) {
        seen_by_first = first.line();
        ASSERT_THAT(seen_by_first, MatchesRegex(telemetry_line_pattern()));
    }
    EXPECT_EQ(seen_by_second, seen_by_first);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(second.line(), first.line());
}

TEST(telemetry_server, goes_on_when_viewers_leave_and_ends_when_interrupted)
{
    Child_process server = start({});
    const int port = port_of(server);
    for (int i = 0; i < 5; ++i) {
        Viewer viewer(port);
        EXPECT_NE("", viewer.line());
    }
    server.signal(SIGINT);
    EXPECT_EQ("0 bytes lost by viewers that fell behind", server.line());
    EXPECT_EQ(0, server.status());
}

TEST(telemetry_server, is_seen_with_netcat)
{
    if (std::system("command -v nc >/dev/null") != 0)
        GTEST_SKIP() << "nc is not here";
    Child_process server = start({});
    Child_process viewer("", "nc", {"127.0.0.1", std::to_string(port_of(server))});
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(viewer.line(), MatchesRegex(telemetry_line_pattern()));
}

TEST(telemetry_server, ends_after_the_drive_it_was_asked_for)
{
    Child_process server = start({"--seconds", "2", "--fast"});
    port_of(server);
    EXPECT_EQ("0 bytes lost by viewers that fell behind", server.line());
    EXPECT_EQ(0, server.status());
}

TEST(telemetry_server, refuses_what_it_does_not_know)
{
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--prot", "1"},
                                                  {"--port"},
                                                  {"--port", "0"},
                                                  {"--port", "70000"},
                                                  {"--port", "80x"},
                                                  {"--seconds", "0"},
                                                  {"--seconds", "nan"}}) {
        Child_process server = start(wrong);
        EXPECT_EQ("", server.line());
        EXPECT_EQ(1, server.status());
    }
    Child_process help = start({"--help"});
    EXPECT_THAT(help.line(), testing::StartsWith("usage: telemetry_server"));
    EXPECT_EQ(0, help.status());
}

TEST(telemetry_server, says_so_when_the_port_is_taken)
{
    Child_process first = start({});
    Child_process second = start({"--port", std::to_string(port_of(first))});
    EXPECT_EQ("", second.line());
    EXPECT_EQ(1, second.status());
}
