// The kit's virtual card for tests: its state file and the registration of the kit's card
// minidriver and CSP in the real registry of the prefix, as an installation would make them.
#pragma once

#include "KitCardState.h"
#include "support/CallerTrace.h"

#include <string>

namespace zeltest {

inline constexpr const char* kKitCardName = "Oberthur Technologies KVR Device";
inline constexpr const char* kKitMinidriverFile = "zelkitmd.dll"; // its name in system32
inline constexpr const char* kBaseCspName = "Microsoft Base Smart Card Crypto Provider";
inline constexpr const char* kKitReader = "ZelKit Reader 0";

std::string CalaisCardKey(const std::string& cardName);
std::string CspProviderKey(const std::string& providerName);

// An inserted Oberthur card in kKitReader: PIN "1234", an 8-byte cardcf of 01 02 ... 08, no
// containers, no refresh delay.
zelkit::CardState OberthurCardState();
// The same card with valid content on both applets: an "ORBEN_CCCA" signature and an
// "ORBEN_AUTH" exchange container with certificates each, the compatibility applet also its
// empty "Default Key Container".
zelkit::CardState ValidOberthurCardState();

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

// A card in the reader for the length of a test: state written, minidriver and CSP registered,
// all of it removed again at the end (with the enrollment setting the CSP reads).
class VirtualCard {
public:
    explicit VirtualCard(const zelkit::CardState& state = OberthurCardState(),
                         CallSite caller = CallSite::current());
    ~VirtualCard();
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;
};

} // namespace zeltest
