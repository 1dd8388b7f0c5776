#include "platform/Platform.h"

#include "tests/support/Fresh_process.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

/// The base directory that a fresh process sees with these variables; null for one that is not set.
void expect_base_directory(const char* expected, const char* chosen, const char* data_home, const char* home)
{
    const auto set = [](const char* name, const char* value) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    };
    // The object reads the variables once a process, so each case has one of its own.
    EXPECT_EXIT(
        {
            set("QUARVEL_BASE_DIR", chosen);
            set("XDG_DATA_HOME", data_home);
            set("HOME", home);
            std::fprintf(stderr, "<%s>", Platform::instance().base_directory().c_str());
            std::exit(0);
        },
        testing::ExitedWithCode(0), std::string("^<") + expected + ">$");
}

} // namespace

TEST(Platform, keeps_data_where_the_environment_says)
{
    expect_base_directory("/var/console/", "/var/console/", "/data", "/home/driver");
    expect_base_directory("/var/console/", "/var/console", "/data", "/home/driver");
    expect_base_directory("relative/", "relative", nullptr, nullptr);
}

TEST(Platform, keeps_data_in_the_data_home_otherwise)
{
    expect_base_directory("/data/quarvelutil/", nullptr, "/data", "/home/driver");
    expect_base_directory("/data/quarvelutil/", "", "/data", "/home/driver");
    expect_base_directory("/home/driver/.local/share/quarvelutil/", nullptr, nullptr, "/home/driver");
    expect_base_directory("/home/driver/.local/share/quarvelutil/", nullptr, "", "/home/driver");
    expect_base_directory("/home/driver/.local/share/quarvelutil/", nullptr, "relative", "/home/driver");
}

TEST(Platform, keeps_data_in_the_working_folder_when_there_is_nothing_else)
{
    expect_base_directory("\\./", nullptr, nullptr, nullptr);
    expect_base_directory("\\./", "", "", "");
}

TEST(Platform, is_one_object_that_read_the_environment_once)
{
    in_a_fresh_process([] {
        Platform& platform = Platform::instance();
        const std::string before = platform.base_directory();
        setenv("QUARVEL_BASE_DIR", "/elsewhere", 1);
        EXPECT_EQ(&platform, &Platform::instance());
        EXPECT_EQ(before, Platform::instance().base_directory());
    });
}
