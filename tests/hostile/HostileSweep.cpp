#include "hostile/HostileSweep.h"

#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace hostile {

namespace {

constexpr const char* kPolicies = "SOFTWARE\\Policies";

constexpr std::size_t kSizes[] = {k8KiB, k64KiB, k1MiB};

std::string cycle(const char* alphabet, std::size_t count) {
    const std::string letters(alphabet);
    std::string text(count, ' ');
    for (std::size_t i = 0; i < count; ++i) {
        text[i] = letters[i % letters.size()];
    }
    return text;
}

Bytes withBytes(Bytes bytes, const std::string& text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

Bytes dwordBytes(DWORD value) {
    const BYTE* raw = reinterpret_cast<const BYTE*>(&value);
    return Bytes(raw, raw + sizeof value);
}

Bytes qwordBytes(DWORD value) {
    Bytes bytes = dwordBytes(value);
    bytes.resize(8, 0);
    return bytes;
}

Bytes multiBytes(const std::vector<std::string>& strings) {
    Bytes bytes;
    for (const std::string& text : strings) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);
    }
    bytes.push_back(0);
    return bytes;
}

// At most the first 200 characters, for failure messages about texts of any size.
std::string excerpt(const std::string& text) {
    std::string shown = text.substr(0, 200);
    for (char& c : shown) {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') {
            c = '?';
        }
    }
    return text.size() > 200 ? shown + "... (" + std::to_string(text.size()) + " bytes)" : shown;
}

} // namespace

std::string SizeName(std::size_t size) {
    return size == k1MiB ? "1MiB" : std::to_string(size / 1024) + "KiB";
}

std::size_t SizeIn(const std::string& variant) {
    for (std::size_t size : kSizes) {
        const std::string name = SizeName(size);
        if (variant.size() > name.size() &&
            variant.compare(variant.size() - name.size(), name.size(), name) == 0) {
            return size;
        }
    }
    return 0;
}

bool IsWrongType(const std::string& variant) {
    return variant.rfind("Type", 0) == 0;
}

bool Starts(const std::string& variant, const char* kind) {
    return variant.rfind(kind, 0) == 0;
}

std::string Letters(std::size_t count) {
    return cycle("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", count);
}

std::string Digits(std::size_t count) {
    return cycle("0123456789", count);
}

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

std::string NonAsciiText() {
    return "\xC4\xD6\xDC\xDF\xE9\xE8\xEA\xF1\xF8\xE5\x80\xA9\xAE\xB5\xFF";
}

Bytes TextBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes SzBytes(const std::string& text) {
    Bytes bytes = TextBytes(text);
    bytes.push_back(0);
    return bytes;
}

std::vector<Variant> StringVariants(const std::string& valid, const Shaper& shaped,
                                    const std::string& nonAscii) {
    std::vector<Variant> variants = {
        {"TypeNone", {REG_NONE, SzBytes(valid)}},
        {"TypeExpandSz", {REG_EXPAND_SZ, SzBytes(valid)}},
        {"TypeBinary", {REG_BINARY, TextBytes(valid)}},
        {"TypeDword", {REG_DWORD, dwordBytes(7)}},
        {"TypeMultiSz", {REG_MULTI_SZ, multiBytes({valid})}},
        {"TypeQword", {REG_QWORD, qwordBytes(7)}},
        {"ZeroBytes", {REG_SZ, {}}},
        {"OneByte", {REG_SZ, Bytes(1, static_cast<BYTE>(valid.front()))}},
        {"NoTerminator", {REG_SZ, TextBytes(valid)}},
        {"EmbeddedNul", {REG_SZ, withBytes(SzBytes(valid), "text after the NUL")}},
    };
    for (std::size_t size : kSizes) {
        variants.push_back({"Plain" + SizeName(size), {REG_SZ, SzBytes(Letters(size))}});
    }
    if (shaped) {
        for (std::size_t size : kSizes) {
            variants.push_back({"Shaped" + SizeName(size), {REG_SZ, SzBytes(shaped(size))}});
        }
    }
    variants.push_back({"NonAscii", {REG_SZ, SzBytes(nonAscii)}});
    return variants;
}

std::vector<Variant> DwordVariants(DWORD valid) {
    const std::string text = std::to_string(valid);
    std::vector<Variant> variants = {
        {"TypeNone", {REG_NONE, dwordBytes(valid)}},
        {"TypeSz", {REG_SZ, SzBytes(text)}},
        {"TypeExpandSz", {REG_EXPAND_SZ, SzBytes(text)}},
        {"TypeBinary", {REG_BINARY, dwordBytes(valid)}},
        {"TypeMultiSz", {REG_MULTI_SZ, multiBytes({text})}},
        {"TypeQword", {REG_QWORD, qwordBytes(valid)}},
        {"ZeroBytes", {REG_DWORD, {}}},
        {"OneByte", {REG_DWORD, Bytes(1, static_cast<BYTE>(valid))}},
    };
    for (std::size_t size : kSizes) {
        variants.push_back({"Plain" + SizeName(size), {REG_DWORD, TextBytes(Letters(size))}});
    }
    for (std::size_t size : kSizes) {
        variants.push_back({"Shaped" + SizeName(size),
                            {REG_DWORD, withBytes(dwordBytes(valid), Letters(size - 4))}});
    }
    variants.push_back({"NonAscii", {REG_DWORD, {0xE9, 0xFC, 0x80, 0xFF}}});
    return variants;
}

std::vector<Variant> BinaryVariants(const Bytes& valid) {
    std::vector<Variant> variants = {
        {"TypeNone", {REG_NONE, valid}},
        {"TypeSz", {REG_SZ, valid}},
        {"TypeExpandSz", {REG_EXPAND_SZ, valid}},
        {"TypeDword", {REG_DWORD, valid}},
        {"TypeMultiSz", {REG_MULTI_SZ, valid}},
        {"TypeQword", {REG_QWORD, valid}},
        {"ZeroBytes", {REG_BINARY, {}}},
        {"OneByte", {REG_BINARY, Bytes(1, valid.front())}},
    };
    for (std::size_t size : kSizes) {
        variants.push_back({"Plain" + SizeName(size), {REG_BINARY, TextBytes(Letters(size))}});
    }
    for (std::size_t size : kSizes) {
        variants.push_back({"Shaped" + SizeName(size),
                            {REG_BINARY, withBytes(valid, Letters(size - valid.size()))}});
    }
    Bytes high;
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        high.push_back(static_cast<BYTE>(byte));
    }
    variants.push_back({"NonAscii", {REG_BINARY, high}});
    return variants;
}

std::vector<Variant> MultiStringVariants(const std::vector<std::string>& valid,
                                         const Shaper& shaped, const std::string& nonAscii) {
    const Bytes list = multiBytes(valid);
    Bytes unterminated = list;
    unterminated.resize(list.size() - 2); // the last string's NUL and the list's end
    std::vector<Variant> variants = {
        {"TypeNone", {REG_NONE, list}},
        {"TypeSz", {REG_SZ, SzBytes(valid.front())}},
        {"TypeExpandSz", {REG_EXPAND_SZ, SzBytes(valid.front())}},
        {"TypeBinary", {REG_BINARY, list}},
        {"TypeDword", {REG_DWORD, dwordBytes(7)}},
        {"TypeQword", {REG_QWORD, qwordBytes(7)}},
        {"ZeroBytes", {REG_MULTI_SZ, {}}},
        {"OneByte", {REG_MULTI_SZ, Bytes(1, static_cast<BYTE>(valid.front().front()))}},
        {"NoTerminator", {REG_MULTI_SZ, unterminated}},
        {"EmbeddedNul",
         {REG_MULTI_SZ, withBytes(Bytes(1, 0), std::string(list.begin(), list.end()))}},
    };
    for (std::size_t size : kSizes) {
        variants.push_back({"Plain" + SizeName(size), {REG_MULTI_SZ, multiBytes({Letters(size)})}});
    }
    for (std::size_t size : kSizes) {
        variants.push_back({"Shaped" + SizeName(size), {REG_MULTI_SZ, multiBytes({shaped(size)})}});
    }
    variants.push_back({"NonAscii", {REG_MULTI_SZ, multiBytes({nonAscii})}});
    return variants;
}

std::vector<std::string> NamesOf(const std::vector<Variant>& variants) {
    std::vector<std::string> names;
    for (const Variant& variant : variants) {
        names.push_back(variant.name);
    }
    return names;
}

const PlantedData& DataNamed(const std::vector<Variant>& variants, const std::string& name) {
    const auto found = std::find_if(variants.begin(), variants.end(),
                                    [&](const Variant& variant) { return variant.name == name; });
    if (found == variants.end()) {
        ADD_FAILURE() << "no variant named " << name;
        static const PlantedData none;
        return none;
    }
    return found->data;
}

void Plant(HKEY root, const std::string& path, const char* valueName, const PlantedData& data,
           REGSAM view, zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    zeltest::WriteExactValue(root, path, valueName, data.type, data.bytes, view);
    const zeltest::StoredValue stored = zeltest::ReadValue(root, path, valueName, view);
    EXPECT_TRUE(stored.present && stored.type == data.type && stored.data == data.bytes)
        << "planted " << path << " " << valueName << " reads back as type " << stored.type << ", "
        << stored.data.size() << " bytes instead of type " << data.type << ", " << data.bytes.size()
        << " bytes";
}

std::string MakeKeyChain(HKEY root, const std::string& path, int depth, zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    TqUniqueRegKey parent;
    EXPECT_EQ(ERROR_SUCCESS,
              ::RegCreateKeyExA(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY,
                                nullptr, parent.put(), nullptr))
        << path;
    std::string deepest = path;
    for (int level = 0; level < depth && parent; ++level) {
        TqUniqueRegKey child;
        EXPECT_EQ(ERROR_SUCCESS, ::RegCreateKeyExA(parent.get(), "n", 0, nullptr, 0, KEY_ALL_ACCESS,
                                                   nullptr, child.put(), nullptr));
        parent = std::move(child);
        deepest += "\\n";
    }
    return deepest;
}

// --- the registry snapshot ------------------------------------------------------------------

namespace {

struct SnapshotRoot {
    HKEY root;
    const char* rootName;
    std::string path;
};

std::vector<SnapshotRoot> snapshotRoots() {
    const std::string wow = "SOFTWARE\\Wow6432Node\\";
    const std::string jcop32 = wow + std::string(kTqJcopContactKey).substr(9);
    const std::string jcopless32 = wow + std::string(kTqJcopContactlessKey).substr(9);
    return {
        {HKEY_LOCAL_MACHINE, "HKLM", zeltest::kUninstallKey},
        {HKEY_LOCAL_MACHINE, "HKLM", zeltest::kUninstall32Key},
        {HKEY_LOCAL_MACHINE, "HKLM", zeltest::kDriverUpdatesKey},
        {HKEY_LOCAL_MACHINE, "HKLM", kTqJcopContactKey},
        {HKEY_LOCAL_MACHINE, "HKLM", kTqJcopContactlessKey},
        {HKEY_LOCAL_MACHINE, "HKLM", jcop32},
        {HKEY_LOCAL_MACHINE, "HKLM", jcopless32},
        {HKEY_CURRENT_USER, "HKCU", kTqEnrollmentKey},
        {HKEY_CURRENT_USER, "HKCU", "SOFTWARE\\Vessant"},
        {HKEY_LOCAL_MACHINE, "HKLM", "SOFTWARE\\Wow6432Node\\Vessant"},
        {HKEY_LOCAL_MACHINE, "HKLM", "SOFTWARE\\Policies\\Vessant"},
    };
}

RegistrySnapshot::Item keyItem(LSTATUS openStatus = ERROR_SUCCESS) {
    RegistrySnapshot::Item item;
    item.key = true;
    item.openStatus = openStatus;
    return item;
}

// Records the open key's values and, through their parent's handle, its sub-keys.
void recordKey(HKEY key, const std::string& name, RegistrySnapshot& snapshot) {
    snapshot.items[name] = keyItem();
    DWORD subKeys = 0;
    DWORD values = 0;
    DWORD longestValueName = 0;
    DWORD longestData = 0;
    if (::RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values,
                           &longestValueName, &longestData, nullptr, nullptr) != ERROR_SUCCESS) {
        snapshot.items[name].openStatus = ERROR_INVALID_DATA;
        return;
    }
    std::string valueName(longestValueName + 1, '\0');
    Bytes data(longestData + 1);
    for (DWORD index = 0; index < values; ++index) {
        DWORD nameLength = static_cast<DWORD>(valueName.size());
        DWORD dataLength = static_cast<DWORD>(data.size());
        RegistrySnapshot::Item item;
        const LSTATUS status = ::RegEnumValueA(key, index, valueName.data(), &nameLength, nullptr,
                                               &item.type, data.data(), &dataLength);
        if (status != ERROR_SUCCESS) {
            item.openStatus = status;
            snapshot.items[name + "|#" + std::to_string(index)] = item;
            continue;
        }
        item.bytes.assign(data.begin(), data.begin() + dataLength);
        snapshot.items[name + "|" + valueName.substr(0, nameLength)] = std::move(item);
    }
    for (DWORD index = 0; index < subKeys; ++index) {
        char childName[256];
        DWORD childLength = sizeof childName;
        if (::RegEnumKeyExA(key, index, childName, &childLength, nullptr, nullptr, nullptr,
                            nullptr) != ERROR_SUCCESS) {
            continue;
        }
        const std::string child = name + "\\" + std::string(childName, childLength);
        TqUniqueRegKey childKey;
        const LSTATUS status = ::RegOpenKeyExA(key, childName, 0, KEY_READ, childKey.put());
        if (status != ERROR_SUCCESS) {
            snapshot.items[child] = keyItem(status);
            continue;
        }
        recordKey(childKey.get(), child, snapshot);
    }
}

std::string describe(const RegistrySnapshot::Item& item) {
    if (item.key) {
        return item.openStatus == ERROR_SUCCESS
                   ? "key"
                   : "key that cannot be opened (" + std::to_string(item.openStatus) + ")";
    }
    return "value of type " + std::to_string(item.type) + ", " + std::to_string(item.bytes.size()) +
           " bytes";
}

} // namespace

RegistrySnapshot RegistrySnapshot::Take() {
    RegistrySnapshot snapshot;
    for (const SnapshotRoot& root : snapshotRoots()) {
        const std::string name = std::string(root.rootName) + "\\" + root.path;
        TqUniqueRegKey key;
        const LSTATUS status =
            ::RegOpenKeyExA(root.root, root.path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, key.put());
        if (status == ERROR_FILE_NOT_FOUND) {
            continue;
        }
        if (status != ERROR_SUCCESS) {
            snapshot.items[name] = keyItem(status);
            continue;
        }
        recordKey(key.get(), name, snapshot);
    }
    return snapshot;
}

void ExpectUnchanged(const RegistrySnapshot& before, const RegistrySnapshot& after,
                     zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    std::set<std::string> names;
    for (const auto& [name, item] : before.items) {
        names.insert(name);
    }
    for (const auto& [name, item] : after.items) {
        names.insert(name);
    }
    int reported = 0;
    for (const std::string& name : names) {
        const auto was = before.items.find(name);
        const auto is = after.items.find(name);
        if (was != before.items.end() && is != after.items.end() && was->second == is->second) {
            continue;
        }
        if (++reported > 20) {
            ADD_FAILURE() << "... and more registry changes";
            return;
        }
        ADD_FAILURE() << "a read-only export changed the registry: " << name << " was "
                      << (was == before.items.end() ? "absent" : describe(was->second)) << ", is "
                      << (is == after.items.end() ? "absent" : describe(is->second));
    }
}

// --- the probe ------------------------------------------------------------------------------

namespace {

std::string tempPath(const char* stem) {
    static std::atomic<unsigned> counter{0};
    char folder[MAX_PATH + 1];
    const DWORD length = ::GetTempPathA(sizeof folder, folder);
    return std::string(folder, length) + stem + "-" + std::to_string(::GetCurrentProcessId()) +
           "-" + std::to_string(counter++);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string unhex(const std::string& digits) {
    const auto value = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    std::string bytes(digits.size() / 2, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(value(digits[2 * i]) * 16 + value(digits[2 * i + 1]));
    }
    return bytes;
}

ProbeCall callFromReport(const nlohmann::json& reported) {
    ProbeCall call;
    call.exportName = reported.at("export").get<std::string>();
    call.argument = reported.at("argument").get<std::string>();
    call.result = reported.at("result").get<int>();
    if (reported.contains("length")) {
        call.length = reported.at("length").get<int>();
        call.untouched = reported.at("untouched").get<bool>();
        call.hasText = !reported.at("text").is_null();
    }
    if (call.hasText) {
        call.text = unhex(reported.at("text").get<std::string>());
        call.allocated = reported.at("allocated").get<std::size_t>();
        call.terminated = reported.at("terminated").get<bool>();
    }
    return call;
}

} // namespace

const ProbeCall* ProbeRun::call(const std::string& exportName) const {
    for (const ProbeCall& candidate : calls) {
        if (candidate.exportName == exportName) {
            return &candidate;
        }
    }
    return nullptr;
}

ProbeRun RunProbe(const std::string& command, zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    const std::string report = tempPath("zel-probe-report") + ".json";
    const zeltest::ScratchLogFile log;
    ProbeRun run;
    run.process = zeltest::RunProgram("\"" + zeltest::BuiltFile("zel_hostile_probe.exe") + "\" \"" +
                                      report + "\" \"" + log.path() + "\" " + command);
    const std::string text = readWholeFile(report);
    ::DeleteFileA(report.c_str());
    if (text.empty()) {
        return run;
    }
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.contains("calls")) {
        ADD_FAILURE() << "the probe's report is not its JSON: " << excerpt(text);
        return run;
    }
    for (const nlohmann::json& reported : parsed.at("calls")) {
        run.calls.push_back(callFromReport(reported));
    }
    run.reported = true;
    return run;
}

std::string AnsiToUtf8(const std::string& text) {
    if (text.empty()) {
        return text;
    }
    const int wideLength =
        ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(wideLength), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                          wideLength);
    const int length =
        ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, utf8.data(), length, nullptr,
                          nullptr);
    return utf8;
}

void ExpectEndedNormally(const ProbeRun& run, std::size_t calls, zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    const std::string errors = run.process.err.size() > 2000
                                   ? "..." + run.process.err.substr(run.process.err.size() - 2000)
                                   : run.process.err;
    EXPECT_FALSE(run.process.timedOut) << "the probe ran over 30 s and was terminated; its "
                                          "standard error:\n"
                                       << errors;
    char code[16];
    std::snprintf(code, sizeof code, "0x%08lX", run.process.exitCode);
    EXPECT_EQ(0u, run.process.exitCode)
        << "the probe ended with " << code << "; its standard error:\n"
        << errors;
    EXPECT_TRUE(run.reported) << "the probe ended with " << code
                              << " and wrote no report; its standard error:\n"
                              << errors;
    EXPECT_EQ(calls, run.calls.size());
}

// --- what every answer must look like -------------------------------------------------------

namespace {

using Json = nlohmann::ordered_json;

const std::vector<std::string> kRows = {
    "GemaltoMiddleware",        "OTMiddleware",
    "Idemia09Middleware",       "Idemia09MSUpdate",
    "IdemiaCombinedMiddleware", "IdemiaCombinedMinidriverMSUpdate"};
const std::vector<std::string> kDetectedFields = {
    "Detected",       "UUID",         "Name",         "Publisher", "Platform",
    "DisplayVersion", "VersionMajor", "VersionMinor", "Revision",  "BuildNo"};

bool isOneOf(int value, const std::vector<int>& documented) {
    return std::find(documented.begin(), documented.end(), value) != documented.end();
}

std::vector<std::string> keysOf(const Json& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items()) {
        keys.push_back(key);
    }
    return keys;
}

// A text answer: a heap block of exactly length + 1 bytes, its text as long as the length, a NUL
// right after it and none before.
void expectTextShape(const ProbeCall& call) {
    EXPECT_FALSE(call.untouched) << call.exportName << " left the text pointer untouched";
    if (!call.hasText) {
        return;
    }
    EXPECT_TRUE(call.terminated) << call.exportName << ": no NUL in the text's heap block";
    EXPECT_EQ(static_cast<std::size_t>(call.length), call.text.size())
        << call.exportName
        << ": the length is not the length of the text up to its first NUL: " << excerpt(call.text);
    EXPECT_EQ(static_cast<std::size_t>(call.length) + 1, call.allocated)
        << call.exportName << ": heap block of " << call.allocated << " bytes for a text of "
        << call.length;
}

// Parses a document of the library; it is written in the ANSI code page.
std::optional<Json> parseDocument(const ProbeCall& call) {
    const Json parsed = Json::parse(AnsiToUtf8(call.text), nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        ADD_FAILURE() << call.exportName
                      << " handed out a document that is not a JSON object: " << excerpt(call.text);
        return std::nullopt;
    }
    return parsed;
}

void expectString(const Json& value, const std::string& what) {
    EXPECT_TRUE(value.is_string()) << what << " is not a string: " << excerpt(value.dump());
}

// One middleware record: detected with its ten fields, not detected, or not detected with the
// exception that stopped the search.
void expectMiddlewareRow(const std::string& key, const Json& row) {
    ASSERT_TRUE(row.is_object()) << key;
    ASSERT_TRUE(row.contains("Detected")) << key;
    const Json& detected = row.at("Detected");
    if (detected == "true") {
        EXPECT_EQ(kDetectedFields, keysOf(row)) << key;
        for (const auto& [field, value] : row.items()) {
            expectString(value, key + "." + field);
        }
        EXPECT_TRUE(row.value("Platform", "") == "64" || row.value("Platform", "") == "32") << key;
        return;
    }
    EXPECT_EQ("false", detected) << key;
    const std::vector<std::string> keys = keysOf(row);
    EXPECT_TRUE(keys == std::vector<std::string>{"Detected"} ||
                keys == (std::vector<std::string>{"Detected", "Exception"}))
        << key << ": " << excerpt(row.dump());
}

void expectFileVersion(const ProbeCall& call) {
    EXPECT_EQ(0, call.result);
    EXPECT_EQ("10", call.text);
}

void expectAtrAnswer(const ProbeCall& call) {
    EXPECT_TRUE(isOneOf(call.result, {0, 11, 19, 21, 32}))
        << "GetATRMiddlewareDetection answered " << call.result;
    if (call.result == 0) {
        EXPECT_TRUE(call.text == "GEMSAFE" || call.text == "PIVMINIDRIVER") << excerpt(call.text);
    } else {
        EXPECT_FALSE(call.hasText)
            << "a failed GetATRMiddlewareDetection handed out " << excerpt(call.text);
    }
}

void expectOberthurAnswer(const ProbeCall& call) {
    EXPECT_TRUE(isOneOf(call.result, {0, 1, -4}))
        << "OberthurMiddlewareDetection answered " << call.result;
    if (call.result < 0) {
        EXPECT_FALSE(call.hasText) << excerpt(call.text);
        return;
    }
    ASSERT_TRUE(call.hasText);
    const auto document = parseDocument(call);
    ASSERT_TRUE(document);
    ASSERT_EQ(std::vector<std::string>{"OTMiddleware"}, keysOf(*document));
    const Json& row = document->at("OTMiddleware");
    expectMiddlewareRow("OTMiddleware", row);
    EXPECT_EQ(call.result == 1 ? "true" : "false", row.value("Detected", ""));
    EXPECT_FALSE(row.contains("Exception"))
        << "an answer of " << call.result << " with an exception record";
}

void expectSupportedAnswer(const ProbeCall& call) {
    EXPECT_EQ(0, call.result) << "SupportedMiddlewareDetection answered " << call.result;
    ASSERT_TRUE(call.hasText);
    const auto document = parseDocument(call);
    ASSERT_TRUE(document);
    // The rows come in table order; a row whose search failed may be left out, except the two
    // that report their failure in the record.
    std::size_t next = 0;
    for (const auto& [key, row] : document->items()) {
        const auto position = std::find(kRows.begin() + next, kRows.end(), key);
        ASSERT_NE(kRows.end(), position) << "unknown or misplaced row " << key;
        next = static_cast<std::size_t>(position - kRows.begin()) + 1;
        expectMiddlewareRow(key, row);
    }
    EXPECT_TRUE(document->contains("Idemia09Middleware"));
    EXPECT_TRUE(document->contains("IdemiaCombinedMiddleware"));
}

void expectAgentAnswer(const ProbeCall& call) {
    EXPECT_TRUE(isOneOf(call.result, {1, 0, -1, -4, -15, -16, -23}))
        << "DetectIdentityAgent answered " << call.result;
    ASSERT_TRUE(call.hasText);
    const auto document = parseDocument(call);
    ASSERT_TRUE(document);
    ASSERT_EQ((std::vector<std::string>{"ia", "springCheck", "os"}), keysOf(*document));
    const Json& ia = document->at("ia");
    const Json& springCheck = document->at("springCheck");
    const Json& os = document->at("os");
    ASSERT_EQ((std::vector<std::string>{"name", "minVersion", "maxVersion"}), keysOf(ia));
    ASSERT_EQ((std::vector<std::string>{"status", "locked", "zelSet"}), keysOf(springCheck));
    ASSERT_EQ(std::vector<std::string>{"hasRebooted"}, keysOf(os));
    const auto oneOf = [](const Json& value, std::initializer_list<const char*> words) {
        return std::any_of(words.begin(), words.end(),
                           [&](const char* word) { return value == word; });
    };
    const Json& name = ia.at("name");
    EXPECT_TRUE(call.result == 1 ? oneOf(name, {"KVR", "BT"}) : name == "unknown") << name;
    for (const char* version : {"minVersion", "maxVersion"}) {
        const std::string text =
            ia.at(version).is_string() ? ia.at(version).get<std::string>() : "";
        EXPECT_TRUE(!text.empty() && text.find_first_not_of("0123456789") == std::string::npos)
            << version << " " << ia.at(version);
    }
    EXPECT_TRUE(oneOf(springCheck.at("status"), {"on", "off", "unknown"}));
    EXPECT_TRUE(oneOf(springCheck.at("locked"), {"true", "false", "unknown"}));
    EXPECT_TRUE(oneOf(springCheck.at("zelSet"), {"true", "false", "unknown"}));
    EXPECT_TRUE(oneOf(os.at("hasRebooted"), {"pending", "true", "unknown"}));
}

void expectEnrollmentAnswer(const ProbeCall& call) {
    EXPECT_TRUE(isOneOf(call.result, {0, 4, 11})) << "GetEnrollmentMode answered " << call.result;
    if (call.result == 0) {
        EXPECT_TRUE(call.text == "AGILE" || call.text == "COMPATIBILITY") << excerpt(call.text);
    } else {
        EXPECT_EQ("NOT SET", call.text);
    }
}

} // namespace

void ExpectReadAnswersDocumented(const ProbeRun& run, zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    const std::vector<std::pair<const char*, void (*)(const ProbeCall&)>> exports = {
        {"GetFileVersion", expectFileVersion},
        {"GetATRMiddlewareDetection", expectAtrAnswer},
        {"OberthurMiddlewareDetection", expectOberthurAnswer},
        {"SupportedMiddlewareDetection", expectSupportedAnswer},
        {"DetectIdentityAgent", expectAgentAnswer},
        {"GetEnrollmentMode", expectEnrollmentAnswer},
    };
    for (const auto& [name, expectAnswer] : exports) {
        const ProbeCall* call = run.call(name);
        if (call == nullptr) {
            ADD_FAILURE() << name << " is missing from the probe's report";
            continue;
        }
        SCOPED_TRACE(name);
        expectTextShape(*call);
        expectAnswer(*call);
    }
}

void ExpectExactAnswers(const ProbeRun& run, const ExactAnswers& expected,
                        zeltest::CallSite caller) {
    const zeltest::CallerTrace trace(caller);
    const ProbeCall* supported = run.call("SupportedMiddlewareDetection");
    if (supported != nullptr && (!expected.rows.empty() || !expected.fields.empty())) {
        const Json document = Json::parse(AnsiToUtf8(supported->text), nullptr, false);
        for (const auto& [key, state] : expected.rows) {
            if (state == "missing") {
                EXPECT_FALSE(document.contains(key)) << key;
                continue;
            }
            ASSERT_TRUE(document.contains(key)) << key << " is missing";
            const Json& row = document.at(key);
            EXPECT_EQ(state == "true" ? "true" : "false", row.value("Detected", "")) << key;
            EXPECT_EQ(state == "exception", row.contains("Exception"))
                << key << ": " << excerpt(row.dump());
        }
        for (const auto& [key, fields] : expected.fields) {
            ASSERT_TRUE(document.contains(key)) << key << " is missing";
            for (const auto& [field, text] : fields) {
                const Json& row = document.at(key);
                const std::string actual = row.contains(field) && row.at(field).is_string()
                                               ? row.at(field).get<std::string>()
                                               : "<none>";
                EXPECT_TRUE(AnsiToUtf8(text) == actual)
                    << key << "." << field << " is " << excerpt(actual) << " instead of "
                    << excerpt(text);
            }
        }
    }
    const ProbeCall* oberthur = run.call("OberthurMiddlewareDetection");
    if (oberthur != nullptr && expected.oberthur) {
        EXPECT_EQ(*expected.oberthur, oberthur->result) << "OberthurMiddlewareDetection";
    }
    const ProbeCall* atr = run.call("GetATRMiddlewareDetection");
    if (atr != nullptr && expected.atr) {
        EXPECT_EQ(*expected.atr, atr->result) << "GetATRMiddlewareDetection";
    }
    if (atr != nullptr && expected.atrWord) {
        EXPECT_EQ(*expected.atrWord, atr->text) << "GetATRMiddlewareDetection";
    }
    const ProbeCall* agent = run.call("DetectIdentityAgent");
    if (agent != nullptr && expected.agent) {
        EXPECT_EQ(*expected.agent, agent->result) << "DetectIdentityAgent";
    }
    if (agent != nullptr && !expected.agentFields.empty()) {
        const Json document = Json::parse(AnsiToUtf8(agent->text), nullptr, false);
        for (const auto& [path, text] : expected.agentFields) {
            const std::size_t dot = path.find('.');
            const std::string group = path.substr(0, dot);
            const std::string field = path.substr(dot + 1);
            const bool present = document.is_object() && document.contains(group) &&
                                 document.at(group).contains(field);
            const std::string actual = present && document.at(group).at(field).is_string()
                                           ? document.at(group).at(field).get<std::string>()
                                           : "<none>";
            EXPECT_EQ(text, actual) << "DetectIdentityAgent " << path;
        }
    }
    const ProbeCall* enrollment = run.call("GetEnrollmentMode");
    if (enrollment != nullptr && expected.enrollment) {
        EXPECT_EQ(*expected.enrollment, enrollment->result) << "GetEnrollmentMode";
    }
    if (enrollment != nullptr && expected.enrollmentMode) {
        EXPECT_EQ(*expected.enrollmentMode, enrollment->text) << "GetEnrollmentMode";
    }
}

// --- the fixture ----------------------------------------------------------------------------

namespace {

struct Writer {
    const char* exportName;
    const char* argument;
    std::vector<int> documented;
};

// The writers in the order the probe calls them.
const Writer kWriters[] = {
    {"SetATRMiddlewareDetection", "GEMSAFE", {0, 4}},
    {"SwitchEnrollmentMode", "AGILE", {0, 4}},
    {"SetIdentityAgentSpringCheck", "1", {0, 4, 15, 16}},
    {"SetIdentityAgentSpringCheck", "0", {0, 4, 11, 15, 16}},
};

} // namespace

void HostileSweep::SetUp() {
    policiesExisted_ = zeltest::KeyExists(HKEY_LOCAL_MACHINE, kPolicies);
    removePlantedKeys();
}

void HostileSweep::TearDown() {
    denied_.clear();
    removePlantedKeys();
    if (!policiesExisted_) {
        zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kPolicies);
    }
}

void HostileSweep::removePlantedKeys() {
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kTqJcopContactKey, view);
        zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, view);
    }
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey);
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, "SOFTWARE\\Vessant");
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Wow6432Node\\Vessant");
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, std::string(kPolicies) + "\\Vessant");
}

void HostileSweep::Sweep(const HostileState& state) {
    std::optional<zeltest::AgentStandIn> agent;
    if (state.agentRunning) {
        agent.emplace("IdentityAgent.exe");
        ASSERT_TRUE(agent->running());
    }
    Planting planting(workstation_, denied_);
    state.plant(planting);
    ASSERT_FALSE(HasFailure()) << "the state was not planted as meant";

    const RegistrySnapshot before = RegistrySnapshot::Take();
    const ProbeRun read = RunProbe("read");
    ExpectEndedNormally(read, 6);
    ExpectReadAnswersDocumented(read);
    ExpectUnchanged(before, RegistrySnapshot::Take());
    ExpectExactAnswers(read, state.exact);

    // The writers run on their own, after the read-only exports and in a probe of their own.
    const ProbeRun written = RunProbe("write");
    ExpectEndedNormally(written, std::size(kWriters));
    for (std::size_t i = 0; i < written.calls.size() && i < std::size(kWriters); ++i) {
        const ProbeCall& call = written.calls[i];
        const Writer& writer = kWriters[i];
        EXPECT_EQ(writer.exportName, call.exportName);
        EXPECT_EQ(writer.argument, call.argument);
        EXPECT_TRUE(isOneOf(call.result, writer.documented))
            << writer.exportName << "(" << writer.argument << ") answered " << call.result;
    }
}

void Planting::deny(HKEY root, const std::string& path, REGSAM view, zeltest::CallSite caller) {
    denied_.push_back(std::make_unique<zeltest::DeniedKey>(root, path, view, caller));
}

} // namespace hostile
