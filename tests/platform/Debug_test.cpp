#include "platform/Debug.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

template <typename FUNCTION>
std::string printed(FUNCTION function)
{
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(dprint, formats_as_printf_does)
{
    using Debug::Print::dprint;
    EXPECT_EQ("plain", printed([] { dprint("plain"); }));
    EXPECT_EQ("-7 +0042 ff 0x1A", printed([] { dprint("%d %+05d %x 0x%X", -7, 42, 255U, 26U); }));
    EXPECT_EQ("3.14 1.500e+00|   0.5|", printed([] { dprint("%.2f %.3e|%6.1f|", 3.14159, 1.5, 0.5); }));
    EXPECT_EQ("18446744073709551615 c 100%",
              printed([] { dprint("%llu %c %d%%", 0xFFFFFFFFFFFFFFFFULL, 'c', 100); }));
    EXPECT_EQ("[abc  ][  abc]", printed([] { dprint("[%-5s][%5s]", "abc", "abc"); }));
}

TEST(dprint, adds_no_newline_and_takes_none_away)
{
    testing::internal::CaptureStderr();
    Debug::Print::dprint("a");
    Debug::Print::dprint("b\n");
    Debug::Print::dprint("\nc");
    EXPECT_EQ("ab\n\nc", testing::internal::GetCapturedStderr());
}

TEST(dprint, writes_nothing_for_an_empty_text)
{
    EXPECT_EQ("", printed([] { Debug::Print::dprint("%s", ""); }));
}

TEST(dprint, writes_a_text_longer_than_any_buffer_whole)
{
    const std::string text(100000, 'x');
    EXPECT_EQ("<" + text + ">", printed([&text] { Debug::Print::dprint("<%s>", text.c_str()); }));
}

TEST(dprint, writes_nothing_to_standard_output)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Debug::Print::dprint("text\n");
    EXPECT_EQ("text\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST(dprint, has_written_a_line_without_end_before_it_returns)
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    const int standard_error = dup(STDERR_FILENO);
    ASSERT_LE(0, dup2(ends[1], STDERR_FILENO));
    Debug::Print::dprint("no newline");
    std::array<char, 64> text{};
    const ssize_t size = read(ends[0], text.data(), text.size());
    EXPECT_LE(0, dup2(standard_error, STDERR_FILENO));
    for (const int fd : {standard_error, ends[0], ends[1]})
        close(fd);
    EXPECT_EQ(10, size);
    EXPECT_STREQ("no newline", text.data());
}

TEST(dprint, keeps_the_texts_of_threads_whole_and_each_threads_texts_in_order)
{
    constexpr int THREADS = 4;
    constexpr int LINES = 100;
    constexpr std::size_t LENGTH = 10000; // more than the C library's buffer
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (int id = 0; id < THREADS; ++id)
        threads.emplace_back([id] {
            const std::string fill(LENGTH, static_cast<char>('a' + id));
            for (int n = 0; n < LINES; ++n)
                Debug::Print::dprint("%d %d %s\n", id, n, fill.c_str());
        });
    for (std::thread& thread : threads)
        thread.join();
    std::istringstream lines(testing::internal::GetCapturedStderr());
    std::array<int, THREADS> next{};
    int torn = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        unsigned id = THREADS;
        int n = -1;
        std::string fill;
        words >> id >> n >> fill;
        const bool whole =
            id < THREADS && n == next[id] && fill == std::string(LENGTH, static_cast<char>('a' + id));
        if (whole)
            ++next[id];
        else
            ++torn;
    }
    EXPECT_EQ(0, torn);
    for (const int count : next)
        EXPECT_EQ(LINES, count);
}

TEST(channel, writes_as_dprint_does_whatever_the_category)
{
    using Debug::Channel::print;
    EXPECT_EQ("port 8080\n", printed([] { print(107, "port %i\n", 8080); }));
    EXPECT_EQ("no newline", printed([] { print(-1, "%s", "no newline"); }));
    EXPECT_EQ("", printed([] { print(0, "%s", ""); }));
}

TEST(channel, reports_a_broken_precondition_and_goes_on)
{
    EXPECT_EQ("PRE-failure: 3 of 4\n",
              printed([] { Debug::Channel::critical("PRE-failure: %d of %d\n", 3, 4); }));
}

TEST(debug_perror, appends_what_errno_says_and_keeps_it)
{
    EXPECT_EQ("open: No such file or directory\n", printed([] {
                  errno = ENOENT;
                  Debug_print::perror("open");
                  EXPECT_EQ(ENOENT, errno);
              }));
    EXPECT_EQ(": Success\n", printed([] {
                  errno = 0;
                  Debug_print::perror("");
              }));
    EXPECT_EQ("100%s: Unknown error 4242\n", printed([] {
                  errno = 4242;
                  Debug_print::perror("100%s");
              }));
}
