// Chooses the card applet by restarting the vendor's PKCS#11 module with a vendor setting.
#pragma once

#include "card/TqPKCS11Types.h"

// The vendor settings named in pReserved of C_Initialize.
inline constexpr const char* kTqKvrAgileMode = "KvrAgileMode";
inline constexpr const char* kTqKvrCompatibleMode = "KvrCompatibleMode";

// "AGILE..." or "COMPATIBILITY..." (prefix match): C_Finalize(NULL), then C_Initialize with
// the setting. Returns CKR_OK, CKR_ARGUMENTS_BAD (null or unknown applet),
// CKR_CRYPTOKI_NOT_INITIALIZED (environment not enabled), a vendor code for an unreachable
// function, or the module's own failure. Standard exceptions are handled here; anything else a
// module throws leaves to the caller's frame, so that it can never come back as CKR_OK.
CK_RV TqPKCS11SetActiveApplet(const char* applet, const char* logFile);
