// The exported functions: each builds a platform object for one call and returns its result.
#define ZEL_PLATFORM_METHODS64_BUILD
#include "ZelPlatformMethods64.h"

#include "host/TqFileVersion.h"
#include "api/TqZelDLLPlatform.h"
#include "base/TqUniqueResource.h"

#include <cstdlib>

extern "C" {

int GetFileVersion(const char* path, char** versionOut, int* versionLengthOut,
                   const char* logFile) {
    return ZelDLLCommonCPPGetFileVersion(path, versionOut, versionLengthOut, logFile);
}

int SetATRMiddlewareDetection(const char* atr, const char* logFile) {
    return TqZelDLLPlatform().setATRMiddlewareDetection(atr, logFile);
}

int GetATRMiddlewareDetection(char** jsonOut, int* jsonLengthOut, const char* logFile) {
    return TqZelDLLPlatform().getATRMiddlewareDetection(jsonOut, jsonLengthOut, logFile);
}

int OberthurMiddlewareDetection(char** jsonOut, int* jsonLengthOut, const char* logFile) {
    return TqZelDLLPlatform().OberthurMiddlewareDetectionJSON(jsonOut, jsonLengthOut, logFile);
}

int SupportedMiddlewareDetection(char** jsonOut, int* jsonLengthOut, const char* logFile) {
    return TqZelDLLPlatform().SupportedMiddlewareDetectionJSON(jsonOut, jsonLengthOut, logFile);
}

int DetectIdentityAgent(char** jsonOut, int* jsonLengthOut, const char* logFile) {
    return TqZelDLLPlatform().detectIdentityAgent(jsonOut, jsonLengthOut, logFile);
}

int SetIdentityAgentSpringCheck(unsigned char enable, const char* logFile) {
    return TqZelDLLPlatform().setIdentityAgentSpringCheck(enable != 0, logFile);
}

int GetEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile) {
    return TqZelDLLPlatform().getEnrollmentMode(nullptr, modeOut, modeLengthOut, logFile);
}

int SwitchEnrollmentMode(const char* applet, const char* logFile) {
    return TqZelDLLPlatform().setEnrollmentMode(nullptr, applet, logFile);
}

void FreeStringData(char** data) {
    if (data != nullptr) {
        const TqUniqueClientText released(*data);
        *data = nullptr;
    }
}

int ZelPlatformGetExportedInterface(ZelPlatformExportedInterface* table) {
    if (table == nullptr) {
        return 1;
    }
    *table = ZelPlatformExportedInterface{
        GetFileVersion,
        SetATRMiddlewareDetection,
        GetATRMiddlewareDetection,
        OberthurMiddlewareDetection,
        SupportedMiddlewareDetection,
        DetectIdentityAgent,
        SetIdentityAgentSpringCheck,
        GetEnrollmentMode,
        SwitchEnrollmentMode,
        FreeStringData,
        ZelPlatformGetExportedInterface,
    };
    return 0;
}

} // extern "C"
