#pragma once

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

/// Descriptors enough that new ones get numbers beyond what an fd_set has room for.
class Many_descriptors {
public:
    static constexpr int COUNT = 2000;

    Many_descriptors()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit raised = before;
        raised.rlim_cur = std::max<rlim_t>(before.rlim_cur, COUNT + 200);
        if (setrlimit(RLIMIT_NOFILE, &raised) != 0)
            return;
        while (fds.size() < COUNT) {
            const int fd = ::open("/dev/null", O_RDONLY);
            if (fd < 0)
                return;
            fds.push_back(fd);
        }
    }
    ~Many_descriptors()
    {
        release();
        setrlimit(RLIMIT_NOFILE, &before);
    }
    Many_descriptors(const Many_descriptors&) = delete;
    Many_descriptors& operator=(const Many_descriptors&) = delete;

    bool are_open() const { return fds.size() == COUNT; }

    void release()
    {
        for (const int fd : fds)
            ::close(fd);
        fds.clear();
    }

private:
    rlimit before{};
    std::vector<int> fds;
};
