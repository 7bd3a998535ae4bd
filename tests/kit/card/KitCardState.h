// The virtual card of the test kit: one state file that a test writes and that the kit's
// winscard.dll, minidriver and CSP read and update. It lives at CardStatePath().
//
// Text, one "name=value" per line:
//   reader=ZelKit Reader 0            the one reader's name
//   inserted=1                        0: the reader is empty
//   atr=3BF91800...                   hexadecimal
//   pin=1234                          the user PIN
//   cardcf=0001020304050607           the "cardcf" file, hexadecimal
//   refreshAfterBumps=N               containers shown "before-refresh" give way to those shown
//                                     "after-refresh" once cardcf has been written N times
//   acquireContextError=8010001C      non-zero: the minidriver refuses CardAcquireContext with it
//   readOnly=1                        the minidriver refuses to write files
//   strict=1                          check the caller's arguments and keep the ledger (below)
//   denyEnrollmentKeyAt=compatibility the CSP denies everyone access to the PIV minidriver's
//                                     enrollment key once that applet is enumerated (once)
//   container=APPLET|NAME|KEY|CERT|SHOWN
//       APPLET agile|compatibility, KEY signature|exchange|none, CERT certificate|none,
//       SHOWN always|before-refresh|after-refresh
//   fail=CALL 80100069                the kit's CALL (SCardEstablishContext, SCardStatusA,
//                                     CardAuthenticatePin, CPGetProvParam.first, ...) fails with
//                                     that code; CALL@N only once cardcf was written N times
// and what the kit counts: cacheBumps (cardcf writes), pinPresentations, cardReads (reads that
// went to the card), and event=... lines, one per call a test may want to see.
//
// The kit is strict: a call whose arguments or flags differ from what the library must pass
// adds a violation=... line naming the call, the argument, what was expected and what came; a
// buffer or handle the kit hands to the library adds an outstanding=... line that the function
// meant to take it back removes. The test support fails a test that leaves either behind.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zelkit {

enum class KeyKind { kNone, kSignature, kExchange };
enum class Shown { kAlways, kBeforeRefresh, kAfterRefresh };

struct Container {
    std::string applet; // "agile" or "compatibility"
    std::string name;
    KeyKind key = KeyKind::kNone;
    bool certificate = false;
    Shown shown = Shown::kAlways;
};

struct CardState {
    std::string reader = "ZelKit Reader 0";
    bool inserted = true;
    std::vector<unsigned char> atr;
    std::string pin = "1234";
    std::vector<unsigned char> cardcf;
    unsigned refreshAfterBumps = 0;
    unsigned long acquireContextError = 0;
    bool readOnly = false;
    std::vector<Container> containers;

    unsigned cacheBumps = 0;
    unsigned pinPresentations = 0;
    unsigned cardReads = 0;
    std::vector<std::string> events;
    std::vector<std::string> violations;
    std::vector<std::string> outstanding;                        // what the library still holds
    std::vector<std::pair<std::string, unsigned long>> failures; // call, code to fail with
    bool strict = false;             // check arguments and keep the ledger (the library's tests do)
    std::string denyEnrollmentKeyAt; // "agile", "compatibility" or empty

    // The containers an applet shows now, in the order of the file.
    std::vector<Container> visible(const std::string& applet) const;
};

std::string CardStatePath();
std::string FormatCardState(const CardState& state);
CardState ParseCardState(const std::string& text);

// False when there is no state file: no reader at all.
bool LoadCardState(CardState& state);
bool SaveCardState(const CardState& state);

// Loads, changes and saves the state in one go; false without a state file.
template <typename Change> bool UpdateCardState(Change&& change) {
    CardState state;
    if (!LoadCardState(state)) {
        return false;
    }
    change(state);
    return SaveCardState(state);
}

// Appends one event line; does nothing without a state file.
void RecordEvent(const std::string& event);
// Violations and the ledger are kept only for a strict card (strict=1).
// Appends one violation line ("<call>: <argument> must be <expected>, was <actual>").
void RecordViolation(const std::string& violation);
// Checks one argument; a difference is a violation. True when it matched.
bool Expect(const char* call, const char* argument, const std::string& expected,
            const std::string& actual);
// The ledger of what the library holds: handed out, then given back.
void RecordHandedOut(const std::string& what);
// Removes what from the ledger; giving back what was not handed out is a violation of call,
// unless onlyIfHandedOut (a callback that also serves other blocks).
void RecordGivenBack(const char* call, const std::string& what, bool onlyIfHandedOut = false);
// The code a test asked call to fail with, or 0.
unsigned long InjectedFailure(const char* call);
std::string HexCode(unsigned long code);

// The applet the PIV minidriver's setting selects: "compatibility" for a non-zero
// EnableKVREnrollment, "agile" otherwise (value or key absent included).
std::string SelectedApplet();

} // namespace zelkit
