// zelplat card list: every reader of the smart-card service, its card and what the smart-card
// database makes of the card's ATR.
#pragma once

int RunCardList();
