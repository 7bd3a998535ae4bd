// A session with the Oberthur card's minidriver, driven directly through CardAcquireContext and
// the CARD_DATA table: open it, bump the card's cache counters, close it.
#pragma once

#include "card/TqCardModule.h"

// The name under which the card and its minidriver are registered with the smart-card service.
inline constexpr const char* kTqOberthurCardName = "Oberthur Technologies KVR Device";

// Connects to the card in readerName, loads the minidriver registered for the card and acquires
// its context into cardData (which is cleared first); the loaded module goes to *module. The ATR
// and card-name buffers lent to the minidriver live on the process heap until TqUnintMinidriver.
// Returns 0 or the failing call's code (a smart-card code, or the Windows error of the load);
// a step that fails releases what the earlier steps acquired.
int TqInitMinidriver(const char* readerName, CARD_DATA* cardData, HMODULE* module,
                     const char* logFile);

// Presents the user PIN and writes the card's "cardcf" back with every freshness counter bumped,
// which tells every host that its cached copy of the card is stale. Returns 0, 0x80100004 for
// bad arguments (or a table without the entry points), or the minidriver's code.
int TqOTClearSeries8SmartCardCache(const char* readerName, const char* pin, CARD_DATA* cardData,
                                   const char* logFile);

// Ends what TqInitMinidriver began: the card's transaction and connection (resetting the card),
// the context, the module and the lent buffers. CardDeleteContext is not called. Returns 0, or
// 0x8010002F for a null table.
int TqUnintMinidriver(HMODULE module, CARD_DATA* cardData, const char* logFile);

// For the callers of the three steps above: a step that returned non-zero sets result to
// failureCode and throws failurePrefix + the smart-card text of the step's own code.
void TqRequireMinidriverStep(int stepCode, const char* failurePrefix, int failureCode, int& result);
