#ifndef HARVANE_DELAY_AUDIO_EXPORTS_H
#define HARVANE_DELAY_AUDIO_EXPORTS_H

/*
 * The module's sixteen exports: C calling convention, undecorated names.
 *
 * Order of calls  xOpen; xSetParameter; xSetInputInfo; xSetOutputInfo; then
 *                 xStartSequenceEx; per pass xStartPassEx, xDeliverPcmUnit and
 *                 xFetchPcmUnit, xEndPass; xEndSequence; xClose. The instance
 *                 does not check it, except where a list turns out empty, which
 *                 ends the process.
 * Results         0 done; 2 memory exhausted; 3 unusable channel tables, format
 *                 or document; 4 a value of the document is missing. What a call
 *                 had reached when it failed stays.
 * Ownership       see HostRecords.h. A record handed in is released by the
 *                 module before a successful return, and not after a failure.
 * Thread          one call at a time per instance; instances are independent.
 * Stack           any alignment of 4 bytes.
 */

#include "delay_audio/HostRecords.h"

#ifdef _WIN32
#define HARVANE_EXPORT
#else
#define HARVANE_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an instance and stores its handle. */
HARVANE_EXPORT uint32_t HARVANE_CALL xOpen(void** handle);
/* Ends an instance; a null handle is allowed. Always 0. Deliberate: what the
 * sequence made is freed by xEndSequence only. */
HARVANE_EXPORT uint32_t HARVANE_CALL xClose(void* handle);
/* Fills the host's buffer. `handle` is not used. */
HARVANE_EXPORT uint32_t HARVANE_CALL xGetInstanceInformation(void* handle,
                                                             InstanceInformation* information);
/* The XML scheme of the parameters, with its NUL. `handle` is not used. */
HARVANE_EXPORT uint32_t HARVANE_CALL xGetParameterScheme(void* handle, InfoBuffer** scheme);
/* Deliberate: always an empty text, size 1. */
HARVANE_EXPORT uint32_t HARVANE_CALL xGetErrorMessage(void* handle, InfoBuffer** message);
/* `xml`: the parameter document in UTF-8, NUL-terminated. */
HARVANE_EXPORT uint32_t HARVANE_CALL xSetParameter(void* handle, const char* xml);
/* What the module offers: a VIDE and an LPCM chunk, 120 bytes. */
HARVANE_EXPORT uint32_t HARVANE_CALL xEnumInputInfo(void* handle, InfoBuffer** info);
/* Chunks of the host's format. Each VIDE or LPCM header must have its 64 or 40
 * bytes behind it, whatever its size field says. */
HARVANE_EXPORT uint32_t HARVANE_CALL xSetInputInfo(void* handle, InfoBuffer* info);
/* The stored LPCM chunk, 48 bytes. */
HARVANE_EXPORT uint32_t HARVANE_CALL xEnumOutputInfo(void* handle, InfoBuffer** info);
/* The first chunk must repeat the stored LPCM payload; else 3, and no release. */
HARVANE_EXPORT uint32_t HARVANE_CALL xSetOutputInfo(void* handle, InfoBuffer* info);
/* `unused` is not looked at. */
HARVANE_EXPORT uint32_t HARVANE_CALL xStartSequenceEx(void* handle, void* unused);
HARVANE_EXPORT uint32_t HARVANE_CALL xStartPassEx(void* handle, const PassArgument* pass);
/* `unit` may be null. `outFlag`: 0 in the first pass of two; in other passes 1
 * once a unit was taken, when xFetchPcmUnit has something to give. */
HARVANE_EXPORT uint32_t HARVANE_CALL xDeliverPcmUnit(void* handle, uint32_t unused, PcmUnit* unit,
                                                     uint32_t* outFlag);
/* All output that waits, planar. Needs at least one channel. `outFlag` becomes 0. */
HARVANE_EXPORT uint32_t HARVANE_CALL xFetchPcmUnit(void* handle, uint32_t unused, PcmUnit** unit,
                                                   uint32_t* outFlag);
/* Queues the log rows; between the passes of two decides the gains. Output that
 * was not fetched is lost. */
HARVANE_EXPORT uint32_t HARVANE_CALL xEndPass(void* handle);
HARVANE_EXPORT uint32_t HARVANE_CALL xEndSequence(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* HARVANE_DELAY_AUDIO_EXPORTS_H */
