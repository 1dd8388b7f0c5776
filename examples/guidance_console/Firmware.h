#pragma once

#include "util/Version.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// What the receiver says that its firmware is, held against what the console needs.
class Firmware {
public:
    enum class Verdict {
        unknown,        ///< no version text came
        any,            ///< read, and nothing is asked of it
        good,           ///< comparable, and not older
        too_old,        ///< comparable, and older
        not_comparable, ///< of another family of numbers
        unreadable      ///< no number in the text
    };

    /// @param needed  the oldest version that will do, or nothing
    explicit Firmware(std::optional<Util::Version> needed = std::nullopt) : oldest(needed) {}

    /// Takes a text sentence ($--TXT) that holds a version; others change nothing.
    ///
    /// @return whether the version is another one now
    bool take(const QByteArray& sentence);

    Verdict verdict() const;
    QString version_text() const; ///< "4.2 p3 b7"; "-" when there is none
    QString verdict_text() const; ///< one sentence

private:
    QByteArray reported;
    std::optional<Util::Version> version;
    std::optional<Util::Version> oldest;
};

/// The version in a receiver's text: "Version: 4.2p3b7", "FWVER=HPG 1.13" or a number alone.
std::optional<Util::Version> version_in(const QByteArray& text);

QString to_text(const Util::Version& version);
