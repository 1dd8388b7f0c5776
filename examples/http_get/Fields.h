#pragma once

#include "util/net/Header_helper.h"

#include <array>

/// The header fields that this program writes or understands, for Header_helper.
struct Fields {
    enum Index {
        HOST,
        USER_AGENT,
        ACCEPT,
        CONNECTION,
        CONTENT_LENGTH,
        TRANSFER_ENCODING,
        LOCATION,
        END_OF_HEAD
    };

    static Header_helper helper()
    {
        static std::array names = {"Host",           "User-Agent",        "Accept",   "Connection",
                                   "Content-Length", "Transfer-Encoding", "Location", ""};
        constexpr auto FIELD = Header_helper::TYPE_HEADER;
        static constexpr std::array TYPES = {FIELD, FIELD, FIELD, FIELD,
                                             FIELD, FIELD, FIELD, Header_helper::TYPE_LINE};
        return {names.data(), TYPES.data(), static_cast<int>(TYPES.size())};
    }
};
