#include "card/CardList.h"

#include "common/ExitCodes.h"
#include "common/RegistryFacts.h"
#include "report/ReportTable.h"
#include "base/TqResultCodes.h"
#include "base/TqUniqueResource.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char* kSmartCardsKey = "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards";

struct CardType {
    std::string name = "-";       // not in the smart-card database
    std::string minidriver = "-"; // "none" when the entry names no minidriver
};

bool matches(const std::vector<BYTE>& atr, const RegistryValue& pattern,
             const RegistryValue& mask) {
    if (pattern.data.size() != atr.size() || mask.data.size() != atr.size()) {
        return false;
    }
    for (std::size_t at = 0; at < atr.size(); ++at) {
        if ((atr[at] & mask.data[at]) != (pattern.data[at] & mask.data[at])) {
            return false;
        }
    }
    return true;
}

// The first card entry whose ATR and mask fit, as the smart-card service picks it.
CardType cardTypeOf(const std::vector<BYTE>& atr) {
    for (const std::string& card : SubkeyNames(HKEY_LOCAL_MACHINE, kSmartCardsKey, 0)) {
        const std::string path = std::string(kSmartCardsKey) + "\\" + card;
        if (matches(atr, ReadRegistryValue(HKEY_LOCAL_MACHINE, path, "ATR", 0),
                    ReadRegistryValue(HKEY_LOCAL_MACHINE, path, "ATRMask", 0))) {
            const std::string module =
                ValueText(ReadRegistryValue(HKEY_LOCAL_MACHINE, path, "80000001", 0));
            return {card, module.empty() ? "none" : module};
        }
    }
    return {};
}

std::vector<std::string> readerRow(SCARDCONTEXT context, const std::string& reader) {
    TqUniqueSCardHandle card;
    DWORD protocol = 0;
    const LONG connected =
        ::SCardConnectA(context, reader.c_str(), SCARD_SHARE_SHARED,
                        SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, card.put(), &protocol);
    if (connected == static_cast<LONG>(SCARD_E_NO_SMARTCARD)) {
        return {reader, "empty", "-", "-", "-"};
    }
    std::vector<BYTE> atr(36);
    DWORD atrLength = static_cast<DWORD>(atr.size());
    if (connected != SCARD_S_SUCCESS ||
        ::SCardStatusA(card.get(), nullptr, nullptr, nullptr, nullptr, atr.data(), &atrLength) !=
            SCARD_S_SUCCESS) {
        return {reader, "unreadable", "-", "-", "-"};
    }
    atr.resize(atrLength);
    const CardType type = cardTypeOf(atr);
    return {reader, "present", HexText(atr), type.name, type.minidriver};
}

std::string scardText(LONG code) {
    const char* message = TqGetSmartCardMessage(static_cast<std::uint32_t>(code));
    return std::string(message != nullptr ? message : "Unknown smart-card error") + " (0x" +
           TqFormatHex8(static_cast<std::uint32_t>(code)) + ")";
}

} // namespace

int RunCardList() {
    TqUniqueSCardContext context;
    LONG status = ::SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, context.put());
    std::vector<char> readers(4096);
    DWORD length = static_cast<DWORD>(readers.size());
    if (status == SCARD_S_SUCCESS) {
        status = ::SCardListReadersA(context.get(), nullptr, readers.data(), &length);
    }
    if (status == static_cast<LONG>(SCARD_E_NO_READERS_AVAILABLE)) {
        std::fputs("No smart-card reader found.\n", stdout);
        return 0;
    }
    if (status != SCARD_S_SUCCESS) {
        std::fprintf(stderr, "zelplat: the smart-card service cannot list its readers: %s\n",
                     scardText(status).c_str());
        return zelexit::kCouldNotAssess;
    }
    std::vector<std::vector<std::string>> rows = {
        {"READER", "CARD", "ATR", "CARD NAME", "MINIDRIVER"}};
    for (const char* reader = readers.data(); *reader != '\0'; reader += std::strlen(reader) + 1) {
        rows.push_back(readerRow(context.get(), reader));
    }
    std::fputs(AlignedColumns(rows).c_str(), stdout);
    return 0;
}
