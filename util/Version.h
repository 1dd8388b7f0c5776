#pragma once

#include "util/export.h"

#include <cstdint>

/// Versions, log records, signals by name, and words of text.
namespace Util {

/// A firmware version number, as receivers and radio modems report it.
///
/// Of two families: major.minor with an optional patch and an optional build number, or major.minor with a
/// revision number. It is valid with major and minor not negative, and with a revision only when it has
/// neither patch nor build. A number that is negative counts as absent; a new version is invalid.
///
/// The parsers read as sscanf() does: blanks of a format match any white space or none, a number may follow
/// white space and have a sign, what comes after the last item is ignored, and a number that is too great
/// for its type gives what the C library makes of it. They return false, with the object unchanged, for a
/// text that they do not accept; else they set every field. They accept negative numbers, and so may leave
/// an invalid version.
///
/// A plain value, for one thread at a time.
struct QUARVEL_EXPORT Version {
    std::int32_t major = -1;    ///< valid from 0 on
    std::int32_t minor = -1;    ///< valid from 0 on
    std::int32_t patch = -1;    ///< of the family without revisions
    std::int32_t build = -1;    ///< of the family without revisions
    std::int32_t revision = -1; ///< from 0 on makes the other family; no parser reads one
    /// 'A' to 'Z'; static_cast<char>(-1) for none, which is 255 where char has no sign. Takes no part in
    /// comparisons and is never printed.
    char revision_letter = static_cast<char>(-1);
    bool test = false; ///< of a test firmware; takes no part in comparisons

    /// Reads "4.2", "4.2p3", "4.2b7" or "4.2p3b7", with or without white space before the letters.
    ///
    /// @param text  never null
    bool decode_velmar_version_number(const char* text);

    /// The same, also for a text that has "Version: " before the number.
    ///
    /// @param text  null is refused
    bool parse_velmar_version_string(const char* text);

    /// Reads major, minor and a letter, which may be absent or something else: then there is no letter.
    ///
    /// `test` is set when " test", " Test" or " TEST" stands anywhere in the text.
    ///
    /// @param format  for sscanf(), with two %d and one %c; never null
    /// @param text    null is refused
    bool parse_arwest_satel_version_string(const char* format, const char* text);

    /// Reads "Ver. 1.05 Rev. c".
    bool parse_arwest_version_string(const char* text);

    /// Reads "V2.10" or "V2.10C".
    bool parse_satel_version_string(const char* text);

    /// Reads major, minor and, when they are there, patch and build.
    ///
    /// Deliberate: a patch without a build gives build 0, and neither gives -1 for both.
    ///
    /// @param format  for sscanf(), with four %d; never null
    /// @param text    null is refused
    bool parse_standard_version_string(const char* format, const char* text);

    /// Reads "V1.2", "V1.2.3" or "V1.2.3.4".
    bool parse_satel_easy_version_string(const char* text);

    /// Whether the two can be compared: both are valid and of one family.
    bool is_compatible_with(const Version& rhs) const;

    /// The operators stop the program by an assertion for versions that are not compatible; compare_version()
    /// does not. Equal when the five numbers are equal as they stand: numbers absent by different negative
    /// values differ, though neither version is less.
    /// @{
    bool operator==(const Version& rhs) const;
    bool operator!=(const Version& rhs) const;
    /// @}

    /// Orders by major, then minor, then, in the revision family, by revision, else by this table of what
    /// `*this` has (rows) and `rhs` has (columns):
    ///
    ///     <                | neither | build           | patch           | patch and build
    ///     neither          | no      | no              | yes             | yes
    ///     build            | yes     | by build        | yes             | yes
    ///     patch            | no      | no              | by patch        | by patch
    ///     patch and build  | yes     | no              | yes             | by patch, then build
    ///
    /// Deliberate, though it contradicts itself twice, so that versions of mixed forms must not be sorted by
    /// it: of a version with neither and one with both each is less than the other, and a version with both
    /// is less than any with a patch alone, which may be less than it in turn.
    /// @{
    bool operator<(const Version& rhs) const;
    bool operator>(const Version& rhs) const;
    bool operator<=(const Version& rhs) const;
    bool operator>=(const Version& rhs) const;
    /// @}

    /// @return -2 when not compatible, else -1 when less (asked first), 1 when greater, 0 when neither
    int compare_version(const Version& rhs) const;

    /// Writes "4.2", "4.2 b7", "4.2 p3", "4.2 p3 b7" or "4.2 Rev. 5", then " Test" for a test firmware.
    ///
    /// A text that is too long is cut. Deliberate: where one of the parts after "4.2" is cut, it ends one
    /// byte earlier than the buffer would allow.
    ///
    /// @param size  of buf; with 0 nothing is written
    /// @return buf; null, with nothing written, for an invalid version
    char* to_string(char* buf, unsigned size) const;

    /// Prints the text, or "<Invalid version>", between the two to standard output.
    ///
    /// @param prefix, suffix  never null
    void print(const char* prefix, const char* suffix) const;
};

} // namespace Util
