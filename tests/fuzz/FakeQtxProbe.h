// A probe library that plays a scripted QTX session: the channel list and
// the up-channel's bytes in the chunk sizes the script gives. The QTX stream
// harness loads it as the probe library and hands it each input.
#pragma once

#include <cstddef>
#include <cstdint>

struct FakeQtxScript {
    int channels = 0;        // up-channels the control block has
    int formatChannel = 0;   // the one whose name is `name`; the others are terminals
    char name[32] = {};
    const std::uint8_t* stream = nullptr;  // not owned
    std::size_t streamSize = 0;
    const std::uint8_t* chunks = nullptr;  // not owned: bytes per read, 0 = the read fails
    std::size_t chunkCount = 0;
    std::size_t delivered = 0; // bytes of the stream handed out so far, kept by the library
};

// Replaces the script; the library keeps the pointer until the next call.
extern "C" using FakeQtxPlay_fn = void(FakeQtxScript*);
