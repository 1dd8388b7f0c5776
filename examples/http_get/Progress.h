#pragma once

#include "platform/Atime.h"
#include "util/net/Download_predictor.h"

#include <cstdint>
#include <optional>
#include <string>

/// A line on standard error, redrawn in place: how much is there and how long the rest takes. Nothing where
/// that is not a terminal.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// The body starts.
    ///
    /// @param length  in bytes, where it is known
    void start(const std::optional<std::uint64_t>& length);

    void add(std::uint64_t bytes);

    /// All is there: the line says how long it took, and stays.
    void finish();

private:
    std::string line();
    std::string remaining();

    bool wanted;
    bool drawn = false;
    std::optional<std::uint64_t> total;
    std::uint64_t done = 0;
    Download_predictor predictor{};
    Atime last_drawn;
};
