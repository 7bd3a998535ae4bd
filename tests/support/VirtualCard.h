// The kit's virtual card for tests: its state file and the registration of the kit's card
// minidriver and CSP in the real registry of the prefix, as an installation would make them.
#pragma once

#include "KitCardState.h"
#include "support/CallerTrace.h"

#include <string>
#include <vector>

namespace zeltest {

inline constexpr const char* kKitCardName = "Oberthur Technologies KVR Device";
inline constexpr const char* kKitMinidriverFile = "zelkitmd.dll"; // its name in system32
inline constexpr const char* kBaseCspName = "Microsoft Base Smart Card Crypto Provider";
inline constexpr const char* kKitReader = "ZelKit Reader 0";
// The kit's second CSP: it shows the same card and may enumerate it, but opening a container
// through it is a violation.
inline constexpr const char* kOtherCspName = "ZelKit Other Smart Card Crypto Provider";

std::string CalaisCardKey(const std::string& cardName);
std::string CspProviderKey(const std::string& providerName);

// An inserted Oberthur card in kKitReader: PIN "1234", an 8-byte cardcf of 01 02 ... 08, no
// containers, no refresh delay. The card is strict: the kit checks how the library calls it.
zelkit::CardState OberthurCardState();
// The same card with valid content on both applets: an "ORBEN_CCCA" signature and an
// "ORBEN_AUTH" exchange container with certificates each, the compatibility applet also its
// empty "Default Key Container".
zelkit::CardState ValidOberthurCardState();

// The same card, with the kit's checks off: for callers other than the library (zelplat's own
// card list, the kit's own tests), which ask the kit in ways of their own.
zelkit::CardState Relaxed(zelkit::CardState state);

void WriteCardState(const zelkit::CardState& state, CallSite caller = CallSite::current());
// Fails the test when there is none.
zelkit::CardState ReadCardState(CallSite caller = CallSite::current());
void RemoveCardState();

// Copies the kit minidriver into system32 as kKitMinidriverFile and writes the card's entry
// (ATR, mask, "80000001", "Crypto Provider", "Smart Card Key Storage Provider").
void RegisterKitMinidriver(const zelkit::CardState& state, CallSite caller = CallSite::current());
void UnregisterKitMinidriver();
// Registers the kit CSP under kBaseCspName ("Image Path" to the built kit_csp.dll, "Type" 1).
void RegisterKitCsp(CallSite caller = CallSite::current());
void UnregisterKitCsp();

// Registers the second CSP under kOtherCspName.
void RegisterKitOtherCsp(CallSite caller = CallSite::current());

// What the kit found wrong so far (violation lines), and clears it: for tests that make the
// library, or themselves, call the kit wrongly on purpose.
std::vector<std::string> TakeKitViolations(CallSite caller = CallSite::current());
// What the kit handed to the library and has not had back yet, and clears it.
std::vector<std::string> TakeKitOutstanding(CallSite caller = CallSite::current());
// Whether the library's copy of the PIN last presented to the kit minidriver was wiped once the
// presentation was over: 0 no PIN presented since the last check, 1 wiped, 2 still holds the
// PIN. Only a PIN of more than 16 characters is compared.
int KitPinCopyCheck(CallSite caller = CallSite::current());

// A card in the reader for the length of a test: state written, minidriver and CSP registered,
// all of it removed again at the end (with the enrollment setting the CSP reads). At the end
// the test fails when the kit recorded a violation or still holds something it handed out.
class VirtualCard {
public:
    explicit VirtualCard(const zelkit::CardState& state = OberthurCardState(),
                         CallSite caller = CallSite::current());
    ~VirtualCard();
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;
};

} // namespace zeltest
