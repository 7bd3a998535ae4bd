/*
 * ZelPlatformMethods64.dll: platform answers for the card-management client.
 *
 * Every function returns 0 on success or a result code. Text answers are NUL-terminated
 * strings allocated by the library; the length beside them counts the text without the NUL.
 * The caller owns such text and releases it with FreeStringData, never with its own free().
 * On failure the text pointer reads NULL. logFile may be NULL (keep the file set by an earlier
 * call, or none); a non-NULL logFile becomes the process-wide log file.
 * The library takes no locks: call it from one thread at a time while a log file is in use.
 */
#ifndef ZEL_PLATFORM_METHODS64_H
#define ZEL_PLATFORM_METHODS64_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(ZEL_PLATFORM_METHODS64_BUILD)
#define ZEL_PLATFORM_API
#else
#define ZEL_PLATFORM_API __declspec(dllimport)
#endif

/* Major file version of the module at path ("10" for 10.0.19041.1); release with FreeStringData. */
ZEL_PLATFORM_API int GetFileVersion(const char* path, char** versionOut, int* versionLengthOut,
                                    const char* logFile);
/* Points the JCOP 41 card entries of the smart-card database at "GEMSAFE" or "PIVMINIDRIVER". */
ZEL_PLATFORM_API int SetATRMiddlewareDetection(const char* atr, const char* logFile);
/* Which minidriver the JCOP 41 card entries name; JSON, release with FreeStringData. */
ZEL_PLATFORM_API int GetATRMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                               const char* logFile);
/* The "OTMiddleware" record; JSON, release with FreeStringData. */
ZEL_PLATFORM_API int OberthurMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                                 const char* logFile);
/* The supported-middleware document; JSON, release with FreeStringData. */
ZEL_PLATFORM_API int SupportedMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                                  const char* logFile);
/* The Identity Agent document; JSON, release with FreeStringData. Returns 1 when an agent is
 * installed and running, 0 when none is (name "unknown"), a negative code when the installed
 * programs cannot be read; the document comes with each of these. 23: no document. */
ZEL_PLATFORM_API int DetectIdentityAgent(char** jsonOut, int* jsonLengthOut, const char* logFile);
/* Non-zero enable restores the agent's card-removal check, zero switches it off for this user
 * (11 when IdentityAgent.exe is not running for this user). */
ZEL_PLATFORM_API int SetIdentityAgentSpringCheck(unsigned char enable, const char* logFile);
/* "AGILE", "COMPATIBILITY" or "NOT SET" (with 4 or 11); release with FreeStringData. */
ZEL_PLATFORM_API int GetEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile);
/* applet is exactly "AGILE" or "COMPATIBILITY". */
ZEL_PLATFORM_API int SwitchEnrollmentMode(const char* applet, const char* logFile);
/* Frees *data (when non-NULL) and sets *data to NULL; NULL data is ignored. */
ZEL_PLATFORM_API void FreeStringData(char** data);

typedef int (*ZelGetFileVersionFn)(const char*, char**, int*, const char*);
typedef int (*ZelSetATRMiddlewareDetectionFn)(const char*, const char*);
typedef int (*ZelJsonQueryFn)(char**, int*, const char*);
typedef int (*ZelSetIdentityAgentSpringCheckFn)(unsigned char, const char*);
typedef int (*ZelGetEnrollmentModeFn)(char**, int*, const char*);
typedef int (*ZelSwitchEnrollmentModeFn)(const char*, const char*);
typedef void (*ZelFreeStringDataFn)(char**);

struct ZelPlatformExportedInterface;
typedef int (*ZelPlatformGetExportedInterfaceFn)(struct ZelPlatformExportedInterface*);

/* The eleven exports in table order, for hosts that resolve one symbol only. */
typedef struct ZelPlatformExportedInterface {
    ZelGetFileVersionFn GetFileVersion;
    ZelSetATRMiddlewareDetectionFn SetATRMiddlewareDetection;
    ZelJsonQueryFn GetATRMiddlewareDetection;
    ZelJsonQueryFn OberthurMiddlewareDetection;
    ZelJsonQueryFn SupportedMiddlewareDetection;
    ZelJsonQueryFn DetectIdentityAgent;
    ZelSetIdentityAgentSpringCheckFn SetIdentityAgentSpringCheck;
    ZelGetEnrollmentModeFn GetEnrollmentMode;
    ZelSwitchEnrollmentModeFn SwitchEnrollmentMode;
    ZelFreeStringDataFn FreeStringData;
    ZelPlatformGetExportedInterfaceFn ZelPlatformGetExportedInterface;
} ZelPlatformExportedInterface;

/* Fills the table; returns 1 when table is NULL, else 0. */
ZEL_PLATFORM_API int ZelPlatformGetExportedInterface(ZelPlatformExportedInterface* table);

#ifdef __cplusplus
}
#endif

#endif /* ZEL_PLATFORM_METHODS64_H */
