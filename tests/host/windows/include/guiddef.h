// The platform's identifiers, as the sources under test include them.
#pragma once

#include <cstdint>

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend bool operator==(const GUID&, const GUID&) = default;
};
using IID = GUID;
