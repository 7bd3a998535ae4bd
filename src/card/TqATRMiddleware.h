// The two JCOP 41 card entries of the smart-card database, which decide whether the GemSafe
// minidriver or the PIV minidriver serves the organisation's cards.
#pragma once

inline constexpr const char* kTqJcopContactKey =
    "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP 41 T=1";
inline constexpr const char* kTqJcopContactlessKey =
    "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP 41 T=1 RFID on OMNIKEY CardMan "
    "5x21-CL";

// Writes both entries in the 64-bit and then the 32-bit registry view so that they claim the
// card for "GEMSAFE" or never match it ("PIVMINIDRIVER"). Returns 0, 1 (null word), 14 (unknown
// word), 4 (a key or value could not be written) or 23.
int TqSetATRMiddlewareDetection(const char* middleware, const char* logFile);
