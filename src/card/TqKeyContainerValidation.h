// Key-container validation of an inserted card through CryptoAPI.
#pragma once

#include "card/TqKeyContainerVerdict.h"

#include <cstdint>
#include <vector>

inline constexpr const char* kTqBaseSmartCardCsp = "Microsoft Base Smart Card Crypto Provider";

// Lists the key containers of the card in readerName through providerName and records each
// one in context (checkKeyContainerContent). Diagnostics go to standard error. Returns a
// Windows error code: ERROR_NO_MORE_ITEMS (0x103) after the last container or for a card
// without containers, 0 never, ERROR_INVALID_PARAMETER for an empty name, else the failing
// call's error or checkKeyContainerContent's result.
std::uint32_t TqEnumSmartCardKeyContainers(const char* readerName, const char* providerName,
                                           TqEnumerationContext& context);

// Opens one container through the base smart-card CSP and appends its record: which key pair
// it holds and whether that key has a certificate. A container that cannot be opened gets no
// record; the enumeration goes on with the next one (0). Non-zero stops the enumeration: 1 for
// a null name, 23 when the record could not be made.
int checkKeyContainerContent(const char* containerName, TqEnumerationContext& context);

// The count rules and the verdict, with their log lines under "TqCryptEnumContainers".
bool cardContainsValidContent(const TqEnumerationContext& context, const char* logFile);

// Both applets of the Oberthur card in turn ("AGILE", then "COMPATIBILITY"), switching the
// minidriver's enrollment setting for each and back to the remembered one at the end.
// Returns 1 when both applets are valid, 0 when not, -1 for a null reader name, -4 when an
// enumeration failed, -23 for another failure. The records of both applets are appended to
// records when it is not null.
int TqOTSmartCardValidContent(const char* readerName, std::vector<TqKeyContainerRecord>* records,
                              const char* logFile);
