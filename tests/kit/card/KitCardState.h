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
//   container=APPLET|NAME|KEY|CERT|SHOWN
//       APPLET agile|compatibility, KEY signature|exchange|none, CERT certificate|none,
//       SHOWN always|before-refresh|after-refresh
// and what the kit counts: cacheBumps (cardcf writes), pinPresentations, cardReads (reads that
// went to the card), and event=... lines, one per call a test may want to see.
#pragma once

#include <string>
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

// The applet the PIV minidriver's setting selects: "compatibility" for a non-zero
// EnableKVREnrollment, "agile" otherwise (value or key absent included).
std::string SelectedApplet();

} // namespace zelkit
