/*
 * ZelPlatformMethods64.dll: platform answers for the card-management client.
 * docs/api.md is the same reference with examples.
 *
 * Result codes. Every function but FreeStringData returns an int: 0 for success, otherwise a
 * code of the common table, for example 1 "One or more invalid arguments", 4 "Internal error",
 * 11 "Not found", 23 "Exception occurred". Some functions also answer with codes of their own
 * (OberthurMiddlewareDetection: 1 = detected; DetectIdentityAgent: 1 = an agent was found);
 * each function's comment below lists what it returns. No exception ever leaves the library.
 *
 * Text. A function that hands out text does so through a char** and an int*: the library
 * allocates a NUL-terminated string and stores its address and its length without the NUL.
 * From then on the caller owns the text and releases it with FreeStringData(&text), never with
 * its own free() (the library has its own C runtime). Text is handed out only with the results
 * each comment names; with any other result the text pointer reads NULL and nothing needs to be
 * released. A NULL out pointer is refused with 1 before anything else happens, and then nothing
 * is handed out: where 1 is also an answer, a caller who passed valid pointers knows it is the
 * answer.
 *
 * Log file. logFile (last argument, may be NULL) names the log file; a non-NULL logFile becomes
 * the process-wide log file for every later call, also from other threads, until another one is
 * given. A NULL logFile keeps the file set before, or none. Lines are appended, each whole and
 * ended with CR LF.
 *
 * Threads. The library starts no threads and keeps nothing between calls but the log file's name.
 * Calls may come from several threads at once: the log file is guarded by a lock, so lines are
 * never torn or lost, and everything else a call uses belongs to that call.
 *
 * Console. Some functions also write diagnostic lines ("<function> : <message>") to the process's
 * standard output or standard error; they are not failures by themselves.
 *
 * Registry. Only SetATRMiddlewareDetection, SwitchEnrollmentMode and SetIdentityAgentSpringCheck
 * write the registry; their comments name what they write. Every other function only reads.
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

/* The major file version of the module at path, from its version resource: "10" for
 * 10.0.19041.1, "0" when the resource's fixed information has no valid signature.
 * 0: *versionOut holds the text; release it with FreeStringData.
 * 1: path, versionOut or versionLengthOut is NULL. 3: the version resource has no fixed
 * information. 11: no such file or folder. 4: any other Windows failure, a file without a version
 * resource among them. 23: an unexpected failure. No text with any of these.
 * Reads the file only. */
ZEL_PLATFORM_API int GetFileVersion(const char* path, char** versionOut, int* versionLengthOut,
                                    const char* logFile);
/* Points the two JCOP 41 card entries of the smart-card database at a minidriver: atr is exactly
 * "GEMSAFE" (the entries match the card, so the GemSafe minidriver serves it) or "PIVMINIDRIVER"
 * (their ATR's first byte becomes 0xFF, so they never match and the PIV minidriver serves it).
 * Writes, in the 64-bit and then the 32-bit registry view of HKEY_LOCAL_MACHINE, the keys
 * "SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\JCOP 41 T=1" and "...\JCOP 41 T=1 RFID
 * on OMNIKEY CardMan 5x21-CL" (created when missing) with the values "80000001", "ATR",
 * "ATRMask", "Crypto Provider" and "Smart Card Key Storage Provider". Needs administrator rights.
 * 0: all four entries written. 1: atr is NULL. 14: atr is another word (letter case counts).
 * 4: a key or value could not be written; the entries written before it stay. 23: an unexpected
 * failure. Writes progress lines to standard output. */
ZEL_PLATFORM_API int SetATRMiddlewareDetection(const char* atr, const char* logFile);
/* Which minidriver the JCOP 41 card entries (64-bit view) give the card to. The answer is a word,
 * not JSON: "GEMSAFE" or "PIVMINIDRIVER".
 * 0: *jsonOut holds the word; release it with FreeStringData.
 * 1: an out pointer is NULL. 19: an entry's key cannot be opened (missing). 21: an entry's "ATR"
 * cannot be read. 32: the two entries disagree. 11: an entry's ATR is neither. 23: an unexpected
 * failure. No text with any of these. Reads the registry only.
 * (32 and 11 become "PIVMINIDRIVER" with 0 when the OT middleware's record reads "Detected":
 * "TRUE"; the record OberthurMiddlewareDetection writes reads "true", so today they do not.) */
ZEL_PLATFORM_API int GetATRMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                               const char* logFile);
/* Whether the Oberthur (OT) middleware is installed, as the "OTMiddleware" JSON record.
 * 1: detected; 0: not detected. With both, *jsonOut holds the record; release it with
 * FreeStringData.
 * 1 without a record: an out pointer is NULL. Negative: the search failed (-4: the installed
 * programs could not be read; -23: an unexpected failure); no text. Reads the registry only. */
ZEL_PLATFORM_API int OberthurMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                                 const char* logFile);
/* The supported-middleware document: one JSON record per supported middleware, in a fixed order.
 * 0: *jsonOut holds the document, whether or not anything is installed.
 * 4: no record could be built; *jsonOut holds an exception record ("MiddlewareDetection").
 * 23: an unexpected failure; *jsonOut holds the exception record, or is NULL when even that
 * could not be handed out. Release any text with FreeStringData.
 * 1: an out pointer is NULL; no text. Reads the registry and the driver store only. */
ZEL_PLATFORM_API int SupportedMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                                  const char* logFile);
/* Which Identity Agent is installed and running, its version and how its card-removal check
 * (spring check) stands, as a JSON document.
 * 1: an agent was found; 0: none was (name "unknown"); negative: neither agent could be looked
 * for (the code of the last detector). With each of these *jsonOut holds the document; release
 * it with FreeStringData.
 * 1 without a document: an out pointer is NULL. 23: the document could not be built or handed
 * out; no text. Reads the registry and the process list only. */
ZEL_PLATFORM_API int DetectIdentityAgent(char** jsonOut, int* jsonLengthOut, const char* logFile);
/* Switches the organisation's Identity Agent's card-removal check for the current user.
 * enable 0: switches it off. Writes, under HKEY_CURRENT_USER "SOFTWARE\Vessant\Identity Agent"
 * (created when missing), "CardRemovalCheck" = "False" (REG_SZ) and "ZelCheck" (REG_BINARY, a
 * record of the running agent process, by which a later detection tells whether the agent has
 * restarted since). enable non-zero: deletes those two values, so the agent's default applies.
 * 0: switched. 11: IdentityAgent.exe is not running for this user (switch-off only; no value is
 * written, the key may have been created). 15, 16 or 4: a registry call failed (missing, access
 * denied, other). 23: an unexpected failure. Writes failure lines to standard error. */
ZEL_PLATFORM_API int SetIdentityAgentSpringCheck(unsigned char enable, const char* logFile);
/* Which applet the PIV minidriver presents for enrollment, from the current user's
 * "SOFTWARE\Oberthur Technologies\Minidriver\PIVMinidriver" value "EnableKVREnrollment".
 * 0: "AGILE" (value 0, or unreadable) or "COMPATIBILITY" (any other number).
 * 11: "NOT SET", the key is missing. 4: "NOT SET", the key has no such value.
 * With these three *modeOut holds the word; release it with FreeStringData.
 * 1: an out pointer is NULL. 23: an unexpected failure. No text with these.
 * Reads the registry only. */
ZEL_PLATFORM_API int GetEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile);
/* Switches the applet the PIV minidriver presents: applet is exactly "AGILE" or "COMPATIBILITY"
 * (letter case counts). Writes the value "EnableKVREnrollment" (REG_DWORD 0 for AGILE, 1 for
 * COMPATIBILITY) of HKEY_CURRENT_USER "SOFTWARE\Oberthur Technologies\Minidriver\PIVMinidriver",
 * creating the key when it is missing.
 * 0: switched. 1: applet is NULL. 4: another word (the key is still created when it was missing),
 * or the key or value could not be written. 23: an unexpected failure. */
ZEL_PLATFORM_API int SwitchEnrollmentMode(const char* applet, const char* logFile);
/* Releases text the library handed out: frees *data and sets *data to NULL. NULL data or a NULL
 * *data does nothing. Returns nothing. */
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

/* Fills the table with the eleven exports, for hosts that load the DLL with LoadLibrary and
 * resolve this one name. 0: filled. 1: table is NULL. */
ZEL_PLATFORM_API int ZelPlatformGetExportedInterface(ZelPlatformExportedInterface* table);

#ifdef __cplusplus
}
#endif

#endif /* ZEL_PLATFORM_METHODS64_H */
