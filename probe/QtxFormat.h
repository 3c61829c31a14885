// The record format a firmware announces in its QTX channel name:
// "Plotvik_" then letter/size pairs, "t4" for a time stamp, "f4", "u1", ...
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct QtxItem {
    std::string name;  // "%d Byte float QTX Data"
    std::uint32_t size;
    std::int32_t typeId;
    bool isSigned;
};

struct QtxFormat {
    bool withTimeStamp = false;
    bool valid = false;  // at least one item with a known data letter
    std::vector<QtxItem> items;
};

// Parses the format text after the first '_' of a channel name.
QtxFormat parseQtxFormat(const std::string& channelName);
