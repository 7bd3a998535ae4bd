// Whether the key containers of a card applet hold what the organisation's services need: one
// "ORBEN_CCCA" signing container and one "ORBEN_AUTH" key-exchange container, each with its
// certificate. Free of <windows.h>.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr int kTqAgileApplet = 1;
inline constexpr int kTqCompatibilityApplet = 2;
inline constexpr int kTqGemaltoCard = 1;
inline constexpr int kTqOberthurCard = 2;

// Container content bits; a container holds one key pair at most.
inline constexpr std::uint32_t kTqHoldsKeyExchange = 0x1;
inline constexpr std::uint32_t kTqHoldsSignature = 0x2;
inline constexpr std::uint32_t kTqHoldsCertificate = 0x4;

struct TqKeyContainerRecord {
    std::string name; // as enumerated
    std::uint32_t content = 0;
    int applet = 0; // the applet presented when the record was made
};

// One check of one card: filled by the enumeration, judged by cardContainsValidContent.
struct TqEnumerationContext {
    std::string readerName;
    std::vector<TqKeyContainerRecord> containers; // in enumeration order
    int applet = kTqAgileApplet;
    int cardType = kTqOberthurCard; // neither Gemalto nor Oberthur: no count rules
};

// Verdict bits.
inline constexpr unsigned kTqNamedExchange = 0x01;
inline constexpr unsigned kTqNamedSignature = 0x02;
inline constexpr unsigned kTqSignatureCertificate = 0x08;
inline constexpr unsigned kTqExchangeCertificate = 0x10;
inline constexpr unsigned kTqCompleteContent =
    kTqNamedExchange | kTqNamedSignature | kTqSignatureCertificate | kTqExchangeCertificate;

// The levels of the logger's lines the verdict asks for.
enum class TqVerdictLevel : unsigned { kInfo = 4, kWarn = 8, kError = 16 };

struct TqVerdictLine {
    TqVerdictLevel level;
    std::string message;
    bool operator==(const TqVerdictLine&) const = default;
};

struct TqContentVerdict {
    bool valid = false;
    // False when a count rule refused the records: they were not examined.
    bool examined = false;
    unsigned bits = 0;
    std::vector<TqVerdictLine> lines; // what to log, in order
};

// The count rules of the card type, then the examination of the records in order, then the
// verdict. An empty or duplicate container ends the examination; the verdict then stands on
// what was gathered before it.
TqContentVerdict TqJudgeKeyContainers(const TqEnumerationContext& context);
