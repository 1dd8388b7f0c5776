#pragma once

#include <chrono>
#include <string>
#include <vector>

/// Catches what the library says, for as long as the object lives, in place of the platform's debug output
/// and the C library's perror. One at a time; any thread may print. Without one, all goes to standard error.
class Debug_output {
public:
    enum Way { PRINT, CRITICAL, DPRINT, DEBUG_PERROR, PERROR };

    struct Line {
        Way way;
        int category;     ///< of PRINT; else 0
        std::string text; ///< formatted; of the two perrors the prefix
        int error;        ///< errno, of the two perrors; else 0
    };

    Debug_output();
    ~Debug_output();
    Debug_output(const Debug_output&) = delete;
    Debug_output& operator=(const Debug_output&) = delete;

    std::vector<Line> lines() const;

    /// All texts one after the other, as they came.
    std::string text() const;

    /// Forgets what came by now.
    void clear();

    /// How many lines of that way have just this text.
    int count(Way way, const std::string& text) const;

    /// Keeps a thread that says just this text in the call until that other text has been said.
    void hold(const std::string& text, const std::string& until);

    /// Waits until at least `times` lines of that way have just this text; false when they do not come.
    bool wait_for(Way way, const std::string& text, int times = 1,
                  std::chrono::milliseconds limit = std::chrono::seconds(30)) const;
};
