#include "FakeQtxProbe.h"

#include "probe/TarvoApi.h"

#include <algorithm>
#include <cstring>

namespace {
FakeQtxScript g_none;
FakeQtxScript* g_script = &g_none;
std::size_t g_chunk = 0;
}  // namespace

TARVO_API void FakeQtxPlay(FakeQtxScript* script)
{
    g_script = script;
    g_chunk = 0;
}

TARVO_API const char* TARVOARM_OpenEx(TARVO_LOG*, TARVO_LOG*) { return nullptr; }
TARVO_API void TARVOARM_Close() {}
TARVO_API int TARVOARM_ExecCommand(const char*, char* error, int size)
{
    if (error && size > 0)
        error[0] = '\0';
    return 0;
}
TARVO_API int TARVO_ExecCommand(const char*, char* error, int size) { return TARVOARM_ExecCommand(nullptr, error, size); }
TARVO_API int TARVOARM_TIF_Select(int) { return 0; }
TARVO_API void TARVOARM_SetSpeed(uint32_t) {}
TARVO_API int TARVOARM_Connect() { return 0; }
TARVO_API int TARVOARM_EMU_HasCapEx(int) { return 0; }

TARVO_API int TARVO_QTXTERMINAL_Control(uint32_t command, void* argument)
{
    switch (command) {
    case TARVO_QTX_CMD_GETNUMBUF: return g_script->channels;
    case TARVO_QTX_CMD_GETDESC: {
        auto* desc = static_cast<TARVO_QTX_CHANNEL_DESC*>(argument);
        if (desc->BufferIndex < 0 || desc->BufferIndex >= g_script->channels)
            return -1;
        const char* name = desc->BufferIndex == g_script->formatChannel ? g_script->name : "Terminal";
        std::memset(desc->acName, 0, sizeof desc->acName);
        std::memcpy(desc->acName, name, strnlen(name, sizeof desc->acName - 1));
        desc->SizeOfBuffer = 1024;
        desc->Flags = 0;
        return 0;
    }
    default: return 0;
    }
}

TARVO_API int TARVO_QTXTERMINAL_Read(uint32_t channel, char* buffer, uint32_t size)
{
    FakeQtxScript& s = *g_script;
    if (static_cast<int>(channel) != s.formatChannel)
        return -1;
    if (g_chunk >= s.chunkCount)
        return 0;
    std::size_t n = s.chunks[g_chunk++];
    if (n == 0)
        return -1;
    n = std::min({n, std::size_t{size}, s.streamSize - s.delivered});
    std::memcpy(buffer, s.stream + s.delivered, n);
    s.delivered += n;
    return static_cast<int>(n);
}
