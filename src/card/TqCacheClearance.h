// Clearing a stale minidriver cache of an Oberthur Series 8 card whose content looks invalid.
#pragma once

// Checks the card's content in readerName and, when it is invalid, bumps the card's cache
// counters through the minidriver (up to three times, presenting pin each time) until the
// content reads valid. Returns 1 (already valid, nothing done), 2 (cache reset, now valid),
// 0 (still invalid after three resets), 3 (Oberthur middleware not installed), -1 (null
// argument), -4 (a step failed), -23, or the middleware detection's own negative code.
int TqOTS8SCardCheckAndCacheClear(const char* readerName, const char* pin, const char* logFile);
