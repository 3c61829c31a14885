// The exported C functions of libTarvo_x64.so: thin forwards to the probe.
#include "probe/TarvoApi.h"
#include "sim/Probe.h"

using sim::Probe;

TARVO_API const char* TARVOARM_OpenEx(TARVO_LOG* log, TARVO_LOG*) { return Probe::instance().open(log); }
TARVO_API void TARVOARM_Close(void) { Probe::instance().close(); }
TARVO_API int TARVOARM_EMU_SelectByUSBSN(uint32_t SerialNo) { return Probe::instance().selectBySerial(SerialNo); }
TARVO_API int TARVOARM_SelectIP(const char* sHost, int) { return Probe::instance().selectIp(sHost); }
TARVO_API void TARVOARM_ConfigJTAG(int IRPre, int DRPre) { Probe::instance().configJtag(IRPre, DRPre); }
TARVO_API int TARVOARM_ExecCommand(const char* sIn, char* sError, int BufferSize)
{
    return Probe::instance().execCommand(sIn, sError, BufferSize);
}
TARVO_API int TARVOARM_TIF_Select(int Interface) { return Probe::instance().selectInterface(Interface); }
TARVO_API void TARVOARM_SetSpeed(uint32_t Speed) { Probe::instance().setSpeed(Speed); }
TARVO_API int TARVOARM_Connect(void) { return Probe::instance().connect(); }
TARVO_API int TARVOARM_DEVICE_SelectDialog(void*, uint32_t, void*) { return Probe::instance().selectDialog(); }
TARVO_API int TARVOARM_DEVICE_GetInfo(int DeviceIndex, TARVO_DEVICE_INFO* pDeviceInfo)
{
    return Probe::instance().deviceInfo(DeviceIndex, pDeviceInfo);
}
TARVO_API int TARVOARM_EMU_HasCapEx(int CapEx) { return Probe::instance().hasCapEx(CapEx); }
TARVO_API int TARVOARM_GetDLLVersion(void) { return Probe::kVersion; }
TARVO_API int TARVOARM_GetSN(void) { return Probe::instance().serialNumber(); }
TARVO_API const char* TARVOARM_GetCompileDateTime(void) { return __DATE__ " " __TIME__; }
TARVO_API void TARVOARM_Go(void) { Probe::instance().go(); }
TARVO_API int TARVOARM_Halt(void) { return Probe::instance().halt(); }
TARVO_API int TARVOARM_Reset(void) { return Probe::instance().reset(); }
TARVO_API int TARVOARM_IsOpen(void) { return Probe::instance().isOpen(); }
TARVO_API int TARVOARM_IsConnected(void) { return Probe::instance().isConnected(); }
TARVO_API int TARVOARM_IsHalted(void) { return Probe::instance().isHalted(); }
TARVO_API void TARVO_Go(void) { Probe::instance().go(); }
TARVO_API int TARVO_IsHalted(void) { return Probe::instance().isHalted(); }
TARVO_API int TARVO_ExecCommand(const char* sIn, char* sError, int BufferSize)
{
    return Probe::instance().execCommand(sIn, sError, BufferSize) != 0 ? 1 : 0;
}
TARVO_API int TARVO_QTXTERMINAL_Control(uint32_t Cmd, void* p) { return Probe::instance().qtxControl(Cmd, p); }
TARVO_API int TARVO_QTXTERMINAL_Read(uint32_t BufferIndex, char* pBuffer, uint32_t BufferSize)
{
    return Probe::instance().qtxRead(BufferIndex, pBuffer, BufferSize);
}
TARVO_API int TARVO_BSQ_GetCaps(TARVO_BSQ_CAPS* pCaps) { return Probe::instance().bsqCaps(pCaps); }
TARVO_API int TARVO_BSQ_Start(const TARVO_BSQ_BLOCK* paBlock, uint32_t NumBlocks, uint32_t Period_us, uint32_t Flags)
{
    return Probe::instance().bsqStart(paBlock, NumBlocks, Period_us, Flags);
}
TARVO_API int TARVO_BSQ_Read(void* pBuffer, uint32_t BufferSize) { return Probe::instance().bsqRead(pBuffer, BufferSize); }
TARVO_API int TARVO_BSQ_Stop(void) { return Probe::instance().bsqStop(); }
