// The operations behind the exports: each runs one worker inside the common call frame.
#pragma once

#include <string>

// When a worker's result counts as a failure of the operation: any non-zero value, or only a
// negative one (a positive value is then an answer, such as a "found" code).
enum class TqFailureTest { kNonZero, kNegative };
constexpr bool TqWorkerFailed(TqFailureTest test, int result) noexcept {
    return test == TqFailureTest::kNonZero ? result != 0 : result < 0;
}

// A host-supplied source of the enrollment mode. The exports never pass one. The order of the
// virtual operations is the host's contract: a provider built elsewhere is called by slot.
class TqEnrollmentProvider {
public:
    // First slot: 1 when the enrollment mode is to be read and switched through the card
    // vendor's PKCS#11 module instead of the minidriver's registry setting.
    virtual int isPKCS11Route(const char* logFile) = 0;
    // Second slot: an operation of the host's own that the library never calls.
    virtual void hostOperation() {}
    // Third slot: reads the enrollment mode; same outputs as the registry read.
    virtual int readEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile) = 0;

protected:
    ~TqEnrollmentProvider() = default;
};

class TqZelDLLPlatform {
public:
    explicit TqZelDLLPlatform(std::string tag = {}) : tag(std::move(tag)) {}
    TqZelDLLPlatform(const TqZelDLLPlatform&) = delete;
    TqZelDLLPlatform& operator=(const TqZelDLLPlatform&) = delete;

    virtual int getEnrollmentMode(TqEnrollmentProvider* provider, char** modeOut,
                                  int* modeLengthOut, const char* logFile) noexcept;
    virtual int setEnrollmentMode(TqEnrollmentProvider* provider, const char* applet,
                                  const char* logFile) noexcept;
    virtual int setATRMiddlewareDetection(const char* atr, const char* logFile) noexcept;
    virtual int getATRMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                          const char* logFile) noexcept;
    virtual int OberthurMiddlewareDetection(int selection, const char* logFile) noexcept;
    virtual int OberthurMiddlewareDetectionJSON(char** jsonOut, int* jsonLengthOut,
                                                const char* logFile) noexcept;
    virtual int SupportedMiddlewareDetectionJSON(char** jsonOut, int* jsonLengthOut,
                                                 const char* logFile) noexcept;
    virtual int detectIdentityAgent(char** jsonOut, int* jsonLengthOut,
                                    const char* logFile) noexcept;
    virtual int setIdentityAgentSpringCheck(bool enable, const char* logFile) noexcept;
    virtual int OberthurSeries8CardCheckAndCacheClear(const char* readerName, const char* pin,
                                                      const char* logFile) noexcept;
    virtual int OberthurCacheClear(const char* minidriverName, const char* clearArgument,
                                   const char* logFile) noexcept;
    virtual ~TqZelDLLPlatform() = default;

private:
    template <typename Body>
    int inFrame(const char* function, const char* logFile, char** textOut, Body&& body) noexcept;
    void requireArguments(bool valid, const char* failureText, int& result) const;
    void logEntered(const char* function) const;

    std::string tag;
};
