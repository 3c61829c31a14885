// The C ABI of the Tarvo probe library: every operation Plotvik calls, the
// records they exchange, and one function-pointer type per export for the
// run-time binding (dlopen/dlsym by the exact export name).
//
// Any library that stands in for the probe (the simulated target in sim/, a
// GDB-server back end, ...) implements exactly these exports. The header is
// plain C so that it can be shared with a library built by any compiler.
//
// Threading: every export may be called from any thread; the library
// serialises calls internally. The program calls the connection and sampling
// functions from its worker thread and run control (halt, go, reset,
// is-halted) also from the GUI thread.
#ifndef PLOTVIK_PROBE_TARVOAPI_H
#define PLOTVIK_PROBE_TARVOAPI_H

#include <stdint.h>

#ifdef __cplusplus
#define TARVO_EXTERN_C extern "C"
#else
#define TARVO_EXTERN_C
#endif

#if defined(_WIN32)
#define TARVO_API TARVO_EXTERN_C __declspec(dllexport)
#else
#define TARVO_API TARVO_EXTERN_C __attribute__((visibility("default")))
#endif

/* ---------------------------------------------------------------- numbers */

/* Library version as returned by TARVOARM_GetDLLVersion: major * 10000 +
 * minor * 100 + revision. BSQ capability queries need at least this one. */
#define TARVO_DLL_VERSION_BSQ_CAPS 51100

/* Target interfaces for TARVOARM_TIF_Select. */
#define TARVO_TIF_JTAG 0
#define TARVO_TIF_SWD 1
#define TARVO_TIF_FINE 3

/* Extended capabilities for TARVOARM_EMU_HasCapEx. */
#define TARVO_EMU_CAP_EX_BSQ 53

/* Core identifiers in TARVO_DEVICE_INFO.aCoreId: family in bits 8..31, core
 * revision in bits 0..7 (shown as "Rev.%d"). 0 ends the list. */
#define TARVO_CORE_CORTEX_M0 0x00000100u
#define TARVO_CORE_CORTEX_M0PLUS 0x00000200u
#define TARVO_CORE_CORTEX_M3 0x00000300u
#define TARVO_CORE_CORTEX_M4 0x00000400u
#define TARVO_CORE_CORTEX_M7 0x00000700u
#define TARVO_CORE_CORTEX_M23 0x00002300u
#define TARVO_CORE_CORTEX_M33 0x00003300u
#define TARVO_CORE_CORTEX_M55 0x00005500u
#define TARVO_CORE_CORTEX_A7 0x0000A700u
#define TARVO_CORE_CORTEX_R5 0x0000B500u
#define TARVO_CORE_REVISION(id) ((id)&0xFFu)
#define TARVO_CORE_FAMILY(id) ((id) & ~0xFFu)
#define TARVO_MAX_CORES 8

/* TARVO_BSQ_Start results besides 0 (started). */
#define TARVO_BSQ_ERR_GENERIC (-1)
#define TARVO_BSQ_ERR_NO_MEMORY (-2)     /* a record would not fit the probe's memory */
#define TARVO_BSQ_ERR_TOO_MANY_BLOCKS (-3)
#define TARVO_BSQ_ERR_NOT_SUPPORTED (-4) /* the selected device has no BSQ */

/* TARVO_BSQ_Start flags. */
#define TARVO_BSQ_FLAG_TIMESTAMP 1u /* records start with the 32-bit target time in us */

/* TARVO_QTXTERMINAL_Control commands. */
#define TARVO_QTX_CMD_START 0u        /* arg unused; start looking for the control block */
#define TARVO_QTX_CMD_STOP 1u         /* arg unused */
#define TARVO_QTX_CMD_GETDESC 2u      /* arg: TARVO_QTX_CHANNEL_DESC*, BufferIndex and Direction in */
#define TARVO_QTX_CMD_GETNUMBUF 3u    /* arg: uint32_t* direction; answers the channel count */
#define TARVO_QTX_ERR_NOT_FOUND (-2)  /* GETNUMBUF / GETDESC / Read while the block is not found yet */

/* Channel directions. */
#define TARVO_QTX_DIR_UP 0u   /* target to host */
#define TARVO_QTX_DIR_DOWN 1u /* host to target */

/* ---------------------------------------------------------------- records */

/* Device information, filled by TARVOARM_DEVICE_GetInfo. The caller zeroes the
 * record and sets SizeOfStruct to sizeof(TARVO_DEVICE_INFO) (2424 bytes). The
 * text pointers stay valid while the library is loaded. */
typedef struct TARVO_DEVICE_INFO {
    uint32_t SizeOfStruct;        /* in: 2424 */
    uint32_t Reserved0;
    const char* sName;            /* device name, at most 127 characters */
    const char* sManu;            /* manufacturer, "Unspecified" for generic cores */
    uint32_t aCoreId[TARVO_MAX_CORES]; /* TARVO_CORE_*, 0-terminated when fewer than 8 */
    uint32_t NumCores;
    uint32_t FlashAddr;
    uint32_t FlashSize;           /* bytes */
    uint32_t RAMAddr;
    uint32_t RAMSize;             /* bytes */
    uint32_t HasBSQ;              /* non-zero: the probe can sample this device with BSQ */
    uint8_t aReserved[2424 - 80];
} TARVO_DEVICE_INFO;

/* BSQ capabilities, filled by TARVO_BSQ_GetCaps. */
typedef struct TARVO_BSQ_CAPS {
    uint32_t SizeOfStruct;        /* out: sizeof(TARVO_BSQ_CAPS) */
    uint32_t MaxFreq;             /* highest sampling frequency in Hz */
    uint32_t MaxNumBlocks;        /* most blocks one start may list */
    uint32_t MaxRecordSize;       /* largest record (time stamp + blocks) in bytes */
    uint32_t FifoSize;            /* probe memory for records, in bytes */
    uint32_t aReserved[3];
} TARVO_BSQ_CAPS;

/* One memory block sampled by BSQ; the program passes a list of these. */
typedef struct TARVO_BSQ_BLOCK {
    uint32_t Addr;                /* target address */
    uint32_t NumBytes;            /* bytes to read */
    uint32_t Flags;               /* 0 */
    uint32_t Reserved;            /* 0 */
} TARVO_BSQ_BLOCK;

/* QTX channel descriptor for TARVO_QTX_CMD_GETDESC. */
typedef struct TARVO_QTX_CHANNEL_DESC {
    int32_t BufferIndex;          /* in: channel index */
    uint32_t Direction;           /* in: TARVO_QTX_DIR_UP or TARVO_QTX_DIR_DOWN */
    char acName[32];              /* out: channel name, NUL-terminated */
    uint32_t SizeOfBuffer;        /* out: ring size in target RAM */
    uint32_t Flags;               /* out: the channel's flag word in target RAM */
} TARVO_QTX_CHANNEL_DESC;

#ifdef __cplusplus
static_assert(sizeof(void*) != 8 || sizeof(TARVO_DEVICE_INFO) == 2424, "device record size");
static_assert(sizeof(TARVO_BSQ_BLOCK) == 16, "BSQ block entry size");
static_assert(sizeof(TARVO_QTX_CHANNEL_DESC) == 48, "QTX descriptor size");
#endif

/* Optional log callbacks for TARVOARM_OpenEx. */
typedef void TARVO_LOG(const char* sText);

/* ---------------------------------------------------------------- exports */

/* Opens the selected probe. Null = opened, otherwise a text describing the failure. */
TARVO_API const char* TARVOARM_OpenEx(TARVO_LOG* pfLog, TARVO_LOG* pfErrorOut);
/* Stops sampling, disconnects and closes the probe. */
TARVO_API void TARVOARM_Close(void);
/* Selects the probe with this USB serial number: 0 or positive = selected, negative = no such probe. */
TARVO_API int TARVOARM_EMU_SelectByUSBSN(uint32_t SerialNo);
/* Selects a probe on the network: 0 = selected, non-zero low byte = failed. */
TARVO_API int TARVOARM_SelectIP(const char* sHost, int Port);
/* JTAG scan-chain position of the target. */
TARVO_API void TARVOARM_ConfigJTAG(int IRPre, int DRPre);
/* Executes a command text; an error text goes to sError (empty = accepted).
 * Returns 0 when accepted, negative otherwise. */
/* The command "GetLastError" answers with 0 and the reason of the library's
 * last failed call in sError (empty when there is none). */
TARVO_API int TARVOARM_ExecCommand(const char* sIn, char* sError, int BufferSize);
/* Selects the target interface (TARVO_TIF_*): 0 = selected, negative = unknown. */
TARVO_API int TARVOARM_TIF_Select(int Interface);
/* Interface speed in kHz. */
TARVO_API void TARVOARM_SetSpeed(uint32_t Speed);
/* Connects to the target: 0 = connected, negative = no connection. */
TARVO_API int TARVOARM_Connect(void);
/* The device selection of the library: device index, -1 = user cancelled. */
TARVO_API int TARVOARM_DEVICE_SelectDialog(void* hParent, uint32_t Flags, void* pReserved);
/* Index -1 and null record: number of devices. Otherwise fills the record of
 * that device: 0 = filled, negative = no such device or bad record size. */
TARVO_API int TARVOARM_DEVICE_GetInfo(int DeviceIndex, TARVO_DEVICE_INFO* pDeviceInfo);
/* Non-zero when the probe has the extended capability (TARVO_EMU_CAP_EX_*). */
TARVO_API int TARVOARM_EMU_HasCapEx(int CapEx);
/* Library version, see TARVO_DLL_VERSION_BSQ_CAPS. */
TARVO_API int TARVOARM_GetDLLVersion(void);
/* Serial number of the selected probe. */
TARVO_API int TARVOARM_GetSN(void);
/* Build date and time of the library, e.g. "Jan  1 2024 12:00:00". */
TARVO_API const char* TARVOARM_GetCompileDateTime(void);
/* Run control: let the target run, halt it (0 = halted, negative = not
 * connected), reset it (the target stays halted at the reset vector). */
TARVO_API void TARVOARM_Go(void);
TARVO_API int TARVOARM_Halt(void);
TARVO_API int TARVOARM_Reset(void);
/* Non-zero = yes. IsHalted answers negative when no target is connected. */
TARVO_API int TARVOARM_IsOpen(void);
TARVO_API int TARVOARM_IsConnected(void);
TARVO_API int TARVOARM_IsHalted(void);
/* Same as TARVOARM_Go / TARVOARM_IsHalted, for the sampling code. */
TARVO_API void TARVO_Go(void);
TARVO_API int TARVO_IsHalted(void);
/* Executes a command text: 0 = accepted, non-zero = rejected (error text in sError when given). */
TARVO_API int TARVO_ExecCommand(const char* sIn, char* sError, int BufferSize);
/* QTX control (TARVO_QTX_CMD_*). START/STOP answer 0; GETNUMBUF answers the
 * number of channels in the given direction; GETDESC fills the descriptor and
 * answers 0. Negative = error, TARVO_QTX_ERR_NOT_FOUND while the control block
 * is not found. */
TARVO_API int TARVO_QTXTERMINAL_Control(uint32_t Cmd, void* p);
/* Drains up to BufferSize bytes of an up-channel: bytes read, negative on error. */
TARVO_API int TARVO_QTXTERMINAL_Read(uint32_t BufferIndex, char* pBuffer, uint32_t BufferSize);
/* Fills the capability record: 0 = filled, negative = no BSQ on this probe. */
TARVO_API int TARVO_BSQ_GetCaps(TARVO_BSQ_CAPS* pCaps);
/* Starts sampling the blocks every Period_us microseconds of target time:
 * 0 = started, TARVO_BSQ_ERR_* otherwise. The probe copies the list. */
TARVO_API int TARVO_BSQ_Start(const TARVO_BSQ_BLOCK* paBlock, uint32_t NumBlocks, uint32_t Period_us, uint32_t Flags);
/* Moves whole records (32-bit time stamp, then each block's bytes) into the
 * buffer: bytes delivered (0 when none are waiting), negative on error. */
TARVO_API int TARVO_BSQ_Read(void* pBuffer, uint32_t BufferSize);
/* Stops BSQ and discards records not read yet: 0 = stopped. */
TARVO_API int TARVO_BSQ_Stop(void);

/* ------------------------------------------------- function-pointer types */

typedef const char* TARVOARM_OpenEx_fn(TARVO_LOG*, TARVO_LOG*);
typedef void TARVOARM_Close_fn(void);
typedef int TARVOARM_EMU_SelectByUSBSN_fn(uint32_t);
typedef int TARVOARM_SelectIP_fn(const char*, int);
typedef void TARVOARM_ConfigJTAG_fn(int, int);
typedef int TARVOARM_ExecCommand_fn(const char*, char*, int);
typedef int TARVOARM_TIF_Select_fn(int);
typedef void TARVOARM_SetSpeed_fn(uint32_t);
typedef int TARVOARM_Connect_fn(void);
typedef int TARVOARM_DEVICE_SelectDialog_fn(void*, uint32_t, void*);
typedef int TARVOARM_DEVICE_GetInfo_fn(int, TARVO_DEVICE_INFO*);
typedef int TARVOARM_EMU_HasCapEx_fn(int);
typedef int TARVOARM_GetDLLVersion_fn(void);
typedef int TARVOARM_GetSN_fn(void);
typedef const char* TARVOARM_GetCompileDateTime_fn(void);
typedef void TARVOARM_Go_fn(void);
typedef int TARVOARM_Halt_fn(void);
typedef int TARVOARM_Reset_fn(void);
typedef int TARVOARM_IsOpen_fn(void);
typedef int TARVOARM_IsConnected_fn(void);
typedef int TARVOARM_IsHalted_fn(void);
typedef void TARVO_Go_fn(void);
typedef int TARVO_IsHalted_fn(void);
typedef int TARVO_ExecCommand_fn(const char*, char*, int);
typedef int TARVO_QTXTERMINAL_Control_fn(uint32_t, void*);
typedef int TARVO_QTXTERMINAL_Read_fn(uint32_t, char*, uint32_t);
typedef int TARVO_BSQ_GetCaps_fn(TARVO_BSQ_CAPS*);
typedef int TARVO_BSQ_Start_fn(const TARVO_BSQ_BLOCK*, uint32_t, uint32_t, uint32_t);
typedef int TARVO_BSQ_Read_fn(void*, uint32_t);
typedef int TARVO_BSQ_Stop_fn(void);

#endif
