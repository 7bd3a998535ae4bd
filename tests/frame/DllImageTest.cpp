// What the shipped files themselves declare: the DLL's export names, the DLLs the DLL and zelplat
// import, their version resources, their hardening flags, and the debug symbols beside them.
#include "support/TestSupport.h"

#include <imagehlp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>

namespace {

// A PE image read from disk, with relative addresses resolved through its section table.
class PeFile {
public:
    explicit PeFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    const IMAGE_NT_HEADERS64* headers() const {
        if (bytes_.size() < sizeof(IMAGE_DOS_HEADER)) {
            return nullptr;
        }
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes_.data());
        if (dos->e_magic != IMAGE_DOS_SIGNATURE) {
            return nullptr;
        }
        const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(bytes_.data() + dos->e_lfanew);
        return nt->Signature == IMAGE_NT_SIGNATURE ? nt : nullptr;
    }

    const char* at(DWORD rva) const {
        const IMAGE_NT_HEADERS64* nt = headers();
        const auto* section = IMAGE_FIRST_SECTION(nt);
        for (WORD i = 0; i < nt->FileHeader.NumberOfSections; ++i, ++section) {
            if (rva >= section->VirtualAddress &&
                rva < section->VirtualAddress + section->Misc.VirtualSize) {
                return bytes_.data() + section->PointerToRawData + (rva - section->VirtualAddress);
            }
        }
        return nullptr;
    }

    const IMAGE_DATA_DIRECTORY& directory(int index) const {
        return headers()->OptionalHeader.DataDirectory[index];
    }

    const std::vector<char>& bytes() const { return bytes_; }

private:
    std::vector<char> bytes_;
};

std::vector<std::string> exportNames(const PeFile& pe) {
    std::vector<std::string> names;
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        pe.at(pe.directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress));
    const auto* nameRvas = reinterpret_cast<const DWORD*>(pe.at(exports->AddressOfNames));
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
        names.emplace_back(pe.at(nameRvas[i]));
    }
    return names;
}

std::vector<std::string> importedDlls(const PeFile& pe) {
    std::vector<std::string> dlls;
    const auto* descriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(
        pe.at(pe.directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress));
    for (; descriptor->Name != 0; ++descriptor) {
        std::string name = pe.at(descriptor->Name);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        dlls.push_back(name);
    }
    return dlls;
}

// The DLLs named by the delay-import table, lower-cased and sorted.
std::vector<std::string> delayLoadedDlls(const PeFile& pe) {
    std::vector<std::string> dlls;
    const IMAGE_DATA_DIRECTORY& table = pe.directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT);
    const auto* descriptor =
        reinterpret_cast<const IMAGE_DELAYLOAD_DESCRIPTOR*>(pe.at(table.VirtualAddress));
    for (; descriptor != nullptr && descriptor->DllNameRVA != 0; ++descriptor) {
        std::string name = pe.at(descriptor->DllNameRVA);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        dlls.push_back(name);
    }
    std::sort(dlls.begin(), dlls.end());
    return dlls;
}

std::vector<IMAGE_SECTION_HEADER> sectionHeaders(const PeFile& pe) {
    const IMAGE_NT_HEADERS64* nt = pe.headers();
    const IMAGE_SECTION_HEADER* first = IMAGE_FIRST_SECTION(nt);
    return {first, first + nt->FileHeader.NumberOfSections};
}

// A section's name as the header holds it: up to 8 characters, or "/N" for a longer name kept in
// the symbol string table (only DWARF sections have such names in an image).
std::string sectionName(const IMAGE_SECTION_HEADER& section) {
    const char* name = reinterpret_cast<const char*>(section.Name);
    return std::string(name, strnlen(name, IMAGE_SIZEOF_SHORT_NAME));
}

constexpr DWORD kCetCompatible = 0x01; // IMAGE_DLLCHARACTERISTICS_EX_CET_COMPAT
constexpr DWORD kDebugTypeExDllCharacteristics = 20;

// The extended DLL characteristics of the image's debug directory, when it has them.
std::optional<DWORD> extendedDllCharacteristics(const PeFile& pe) {
    const IMAGE_DATA_DIRECTORY& debug = pe.directory(IMAGE_DIRECTORY_ENTRY_DEBUG);
    const auto* entries =
        reinterpret_cast<const IMAGE_DEBUG_DIRECTORY*>(pe.at(debug.VirtualAddress));
    for (DWORD i = 0; entries != nullptr && i < debug.Size / sizeof(IMAGE_DEBUG_DIRECTORY); ++i) {
        if (entries[i].Type == kDebugTypeExDllCharacteristics && entries[i].SizeOfData >= 4) {
            DWORD flags = 0;
            std::memcpy(&flags, pe.bytes().data() + entries[i].PointerToRawData, sizeof flags);
            return flags;
        }
    }
    return std::nullopt;
}

std::vector<char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool holds(const std::vector<char>& bytes, const std::string& text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

// A string of the version resource of the file at path ("" when it has none).
std::string versionString(const std::string& path, const char* name) {
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), &handle);
    std::vector<char> block(size);
    char* text = nullptr;
    UINT length = 0;
    if (size == 0 || !::GetFileVersionInfoA(path.c_str(), handle, size, block.data()) ||
        !::VerQueryValueA(block.data(),
                          (std::string("\\StringFileInfo\\040904b0\\") + name).c_str(),
                          reinterpret_cast<void**>(&text), &length)) {
        return "";
    }
    return text;
}

// The CodeView entry of a debug directory: "RSDS", the PDB's GUID, its age and its name.
struct CodeViewPdb70 {
    DWORD signature;
    GUID guid;
    DWORD age;
    char name[1];
};

const CodeViewPdb70* codeViewEntry(const PeFile& pe) {
    const IMAGE_DATA_DIRECTORY& debug = pe.directory(IMAGE_DIRECTORY_ENTRY_DEBUG);
    const auto* entries =
        reinterpret_cast<const IMAGE_DEBUG_DIRECTORY*>(pe.at(debug.VirtualAddress));
    for (DWORD i = 0; entries != nullptr && i < debug.Size / sizeof(IMAGE_DEBUG_DIRECTORY); ++i) {
        if (entries[i].Type == IMAGE_DEBUG_TYPE_CODEVIEW) {
            const auto* entry = reinterpret_cast<const CodeViewPdb70*>(pe.bytes().data() +
                                                                       entries[i].PointerToRawData);
            return entry->signature == 0x53445352 ? entry : nullptr; // "RSDS"
        }
    }
    return nullptr;
}

// The folder a symbol store keeps a PDB in: the GUID's 32 hex digits in the order of its text
// form, then the age in hex, both upper case.
std::string symbolStoreKey(const GUID& guid, DWORD age) {
    char key[64];
    std::snprintf(key, sizeof key, "%08lX%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X%lX",
                  static_cast<unsigned long>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0],
                  guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                  guid.Data4[6], guid.Data4[7], static_cast<unsigned long>(age));
    return key;
}

// The GUID and age a PDB file gives itself: its info stream (stream 1 of the multi-stream file)
// begins with version, time signature, age and GUID.
bool pdbIdentity(const std::vector<char>& pdb, GUID& guid, DWORD& age) {
    static const char magic[] = "Microsoft C/C++ MSF 7.00\r\n\x1a"
                                "DS\0\0";
    if (pdb.size() < 56 || std::memcmp(pdb.data(), magic, sizeof magic) != 0) {
        return false;
    }
    auto u32 = [&pdb](size_t offset) {
        DWORD value = 0;
        if (offset + 4 <= pdb.size()) {
            std::memcpy(&value, pdb.data() + offset, 4);
        }
        return value;
    };
    const DWORD blockSize = u32(32);
    const DWORD directoryBytes = u32(44);
    const DWORD blockMap = u32(52);
    if (blockSize == 0) {
        return false;
    }
    // The stream directory, gathered from the blocks the block map names.
    std::vector<char> directory;
    for (DWORD read = 0, i = 0; read < directoryBytes; read += blockSize, ++i) {
        const size_t block = static_cast<size_t>(u32(blockMap * blockSize + 4 * i)) * blockSize;
        const size_t take = std::min<size_t>(blockSize, directoryBytes - read);
        if (block + take > pdb.size()) {
            return false;
        }
        directory.insert(directory.end(), pdb.begin() + block, pdb.begin() + block + take);
    }
    auto dir32 = [&directory](size_t index) {
        DWORD value = 0;
        if (4 * index + 4 <= directory.size()) {
            std::memcpy(&value, directory.data() + 4 * index, 4);
        }
        return value;
    };
    const DWORD streams = dir32(0);
    if (streams < 2) {
        return false;
    }
    // Stream 1's first block follows the sizes and stream 0's block list.
    const DWORD stream0Blocks = (dir32(1) + blockSize - 1) / blockSize;
    const size_t info = static_cast<size_t>(dir32(1 + streams + stream0Blocks)) * blockSize;
    if (info + 28 > pdb.size()) {
        return false;
    }
    std::memcpy(&age, pdb.data() + info + 8, 4);
    std::memcpy(&guid, pdb.data() + info + 12, 16);
    return true;
}

TEST(DllImage, ExportsExactlyTheElevenUndecoratedNames) {
    const PeFile pe(zeltest::BuiltFile("ZelPlatformMethods64.dll"));
    ASSERT_NE(nullptr, pe.headers());
    EXPECT_EQ(IMAGE_FILE_MACHINE_AMD64, pe.headers()->FileHeader.Machine);
    EXPECT_NE(0, pe.headers()->FileHeader.Characteristics & IMAGE_FILE_DLL);
    // The export name table is sorted by name.
    EXPECT_EQ((std::vector<std::string>{"DetectIdentityAgent", "FreeStringData",
                                        "GetATRMiddlewareDetection", "GetEnrollmentMode",
                                        "GetFileVersion", "OberthurMiddlewareDetection",
                                        "SetATRMiddlewareDetection", "SetIdentityAgentSpringCheck",
                                        "SupportedMiddlewareDetection", "SwitchEnrollmentMode",
                                        "ZelPlatformGetExportedInterface"}),
              exportNames(pe));
}

TEST(DllImage, ImportsWindowsSystemDllsOnly) {
    const PeFile pe(zeltest::BuiltFile("ZelPlatformMethods64.dll"));
    ASSERT_NE(nullptr, pe.headers());
    const std::set<std::string> system = {"kernel32.dll", "advapi32.dll", "winscard.dll",
                                          "version.dll",  "shell32.dll",  "ole32.dll",
                                          "msvcrt.dll",   "user32.dll",   "crypt32.dll"};
    const auto dlls = importedDlls(pe);
    EXPECT_FALSE(dlls.empty());
    for (const std::string& dll : dlls) {
        EXPECT_TRUE(system.count(dll)) << "imports " << dll;
    }
}

TEST(DllImage, ImportsOnlyWhatEveryCallNeedsAndDelayLoadsTheRest) {
    const PeFile pe(zeltest::BuiltFile("ZelPlatformMethods64.dll"));
    ASSERT_NE(nullptr, pe.headers());
    auto dlls = importedDlls(pe);
    std::sort(dlls.begin(), dlls.end());
    // shell32 (one folder path of the driver search), winscard (the card code) and version (file
    // versions) are bound on first use by the delay-import thunks, not listed here.
    EXPECT_EQ((std::vector<std::string>{"advapi32.dll", "kernel32.dll", "msvcrt.dll"}), dlls);
}

// The version resource of a shipped binary: its type, the project's version, the product, its
// own file name and the licence.
void expectVersionResource(const char* file, DWORD fileType) {
    const std::string path = zeltest::BuiltFile(file);
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), &handle);
    ASSERT_NE(0u, size) << file;
    std::vector<char> block(size);
    ASSERT_TRUE(::GetFileVersionInfoA(path.c_str(), handle, size, block.data())) << file;
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(::VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(fileType, fixed->dwFileType) << file;
    EXPECT_EQ(static_cast<DWORD>((ZEL_TEST_VERSION_MAJOR << 16) | ZEL_TEST_VERSION_MINOR),
              fixed->dwFileVersionMS)
        << file;
    EXPECT_EQ("ZelPlatformMethods64", versionString(path, "ProductName")) << file;
    EXPECT_EQ(ZEL_TEST_PROJECT_VERSION ".0", versionString(path, "FileVersion")) << file;
    EXPECT_EQ(file, versionString(path, "OriginalFilename"));
    EXPECT_EQ("Copyright 2026 the ZelPlatformMethods64 authors. Licensed under the Apache License, "
              "Version 2.0.",
              versionString(path, "LegalCopyright"))
        << file;
}

TEST(DllImage, VersionResourceNamesTheProductAndItsVersion) {
    expectVersionResource("ZelPlatformMethods64.dll", VFT_DLL);
}

// What ships is dist/: with PDB symbols (lld) the very files the tests ran; with GNU ld copies
// without debug information, each with a link to its .debug file.
TEST(DllImage, DistributionCopyIsWhatTheTestsRanOrItsStrippedCopy) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        const std::string copy = zeltest::ProgramFolder() + "..\\dist\\" + name;
        const PeFile pe(copy);
        ASSERT_NE(nullptr, pe.headers()) << copy;
        if (ZEL_TEST_PDB) {
            EXPECT_EQ(fileBytes(zeltest::BuiltFile(name)), fileBytes(copy)) << copy;
        } else {
            EXPECT_EQ(0u, pe.headers()->FileHeader.NumberOfSymbols) << copy; // no symbol table
        }
    }
}

// The tests of the PDB files run in the build that writes them (lld); GNU ld writes none.
#define ZEL_SKIP_WITHOUT_PDB()                                                                     \
    if (!ZEL_TEST_PDB) {                                                                           \
        GTEST_SKIP() << "this build writes no PDB files";                                          \
    }

TEST(DllImage, DebugDirectoryNamesThePdbByFileNameOnly) {
    ZEL_SKIP_WITHOUT_PDB();
    for (const auto& [binary, pdb] :
         {std::pair{"ZelPlatformMethods64.dll", "ZelPlatformMethods64.pdb"},
          std::pair{"zelplat.exe", "zelplat.pdb"}}) {
        const PeFile pe(zeltest::BuiltFile(binary));
        ASSERT_NE(nullptr, pe.headers()) << binary;
        const CodeViewPdb70* entry = codeViewEntry(pe);
        ASSERT_NE(nullptr, entry) << binary << " has no CodeView entry";
        EXPECT_STREQ(pdb, entry->name) << binary;
    }
}

// WinDbg and Visual Studio take a PDB only when its own GUID and age are the ones the binary
// names; a symbol store keeps it under exactly those.
TEST(DllImage, SymbolStoreHoldsEachBinarysOwnPdbUnderItsGuidAndAge) {
    ZEL_SKIP_WITHOUT_PDB();
    for (const auto& [binary, pdb] :
         {std::pair{"ZelPlatformMethods64.dll", "ZelPlatformMethods64.pdb"},
          std::pair{"zelplat.exe", "zelplat.pdb"}}) {
        const PeFile pe(zeltest::BuiltFile(binary));
        const CodeViewPdb70* entry = codeViewEntry(pe);
        ASSERT_NE(nullptr, entry) << binary;
        const std::vector<char> built = fileBytes(zeltest::BuiltFile(pdb));
        GUID guid{};
        DWORD age = 0;
        ASSERT_TRUE(pdbIdentity(built, guid, age)) << pdb << " is not a PDB file";
        EXPECT_EQ(0, std::memcmp(&guid, &entry->guid, sizeof guid)) << binary;
        EXPECT_EQ(entry->age, age) << binary;
        const std::string stored = zeltest::ProgramFolder() + "..\\symbols\\" + pdb + "\\" +
                                   symbolStoreKey(entry->guid, entry->age) + "\\" + pdb;
        EXPECT_EQ(built, fileBytes(stored)) << stored;
    }
}

// No folder of the machine that built them: the same commit gives the same bytes anywhere.
TEST(DllImage, ShippedFilesNameNoBuildFolder) {
    ZEL_SKIP_WITHOUT_PDB();
    for (const char* name :
         {"ZelPlatformMethods64.dll", "zelplat.exe", "ZelPlatformMethods64.pdb", "zelplat.pdb"}) {
        const std::vector<char> bytes = fileBytes(zeltest::BuiltFile(name));
        ASSERT_FALSE(bytes.empty()) << name;
        EXPECT_FALSE(holds(bytes, ZEL_TEST_SOURCE_DIR)) << name << " names " << ZEL_TEST_SOURCE_DIR;
    }
}

// The loader's defences stay on for both shipped files: the image may be placed anywhere (ASLR),
// anywhere in the 64-bit space (high-entropy ASLR), and its data is not executable (NX).
TEST(DllImage, ShippedBinariesKeepAslrHighEntropyAslrAndNx) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        const PeFile pe(zeltest::BuiltFile(name));
        ASSERT_NE(nullptr, pe.headers()) << name;
        const WORD flags = pe.headers()->OptionalHeader.DllCharacteristics;
        EXPECT_EQ(IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE,
                  flags & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE)
            << name;
        EXPECT_EQ(IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA,
                  flags & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA)
            << name;
        EXPECT_EQ(IMAGE_DLLCHARACTERISTICS_NX_COMPAT, flags & IMAGE_DLLCHARACTERISTICS_NX_COMPAT)
            << name;
        // ASLR needs the relocations to be kept.
        EXPECT_EQ(0, pe.headers()->FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED) << name;
        EXPECT_NE(0u, pe.directory(IMAGE_DIRECTORY_ENTRY_BASERELOC).Size) << name;
    }
}

// The loader maps a program's static imports before main() can restrict where DLLs come from:
// zelplat imports only KnownDLLs statically, and everything else delay-loaded, through the hook
// that loads from System32 only.
TEST(DllImage, ZelplatImportsOnlyKnownDllsAndDelayLoadsTheRest) {
    const PeFile pe(zeltest::BuiltFile("zelplat.exe"));
    ASSERT_NE(nullptr, pe.headers());
    auto dlls = importedDlls(pe);
    std::sort(dlls.begin(), dlls.end());
    EXPECT_EQ((std::vector<std::string>{"advapi32.dll", "kernel32.dll", "msvcrt.dll"}), dlls);
    EXPECT_EQ((std::vector<std::string>{"shell32.dll", "version.dll", "winscard.dll"}),
              delayLoadedDlls(pe));
}

TEST(DllImage, DelayLoadsTheSystemDllsThatNotEveryCallNeeds) {
    const PeFile pe(zeltest::BuiltFile("ZelPlatformMethods64.dll"));
    ASSERT_NE(nullptr, pe.headers());
    EXPECT_EQ((std::vector<std::string>{"shell32.dll", "version.dll", "winscard.dll"}),
              delayLoadedDlls(pe));
}

// A process that supports CET shadow stacks runs both shipped files with it: the image says it
// is compatible in its extended DLL characteristics (a debug directory entry).
TEST(DllImage, ShippedBinariesAreCetShadowStackCompatible) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        const PeFile pe(zeltest::BuiltFile(name));
        ASSERT_NE(nullptr, pe.headers()) << name;
        const std::optional<DWORD> flags = extendedDllCharacteristics(pe);
        ASSERT_TRUE(flags.has_value()) << name << " has no extended DLL characteristics";
        EXPECT_EQ(kCetCompatible, *flags & kCetCompatible) << name;
    }
}

// No section is both writable and executable, and none is shared between processes and
// writable (one process could then change what another runs or reads).
TEST(DllImage, ShippedBinariesHaveNoWritableCodeAndNoSharedWritableData) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        const PeFile pe(zeltest::BuiltFile(name));
        ASSERT_NE(nullptr, pe.headers()) << name;
        const std::vector<IMAGE_SECTION_HEADER> sections = sectionHeaders(pe);
        EXPECT_LE(4u, sections.size()) << name;
        for (const IMAGE_SECTION_HEADER& section : sections) {
            const DWORD flags = section.Characteristics;
            EXPECT_FALSE((flags & IMAGE_SCN_MEM_WRITE) && (flags & IMAGE_SCN_MEM_EXECUTE))
                << name << " " << sectionName(section);
            EXPECT_FALSE((flags & IMAGE_SCN_MEM_WRITE) && (flags & IMAGE_SCN_MEM_SHARED))
                << name << " " << sectionName(section);
        }
    }
}

// The debug symbols are in the PDB files; the images carry no DWARF (the runtime's archives
// bring some, which the build strips after the link).
TEST(DllImage, ShippedBinariesCarryNoDwarfSections) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        const PeFile pe(zeltest::BuiltFile(name));
        ASSERT_NE(nullptr, pe.headers()) << name;
        std::vector<std::string> names;
        for (const IMAGE_SECTION_HEADER& section : sectionHeaders(pe)) {
            names.push_back(sectionName(section));
        }
        EXPECT_EQ(names.end(), std::find_if(names.begin(), names.end(),
                                            [](const std::string& section) {
                                                return section.rfind(".debug", 0) == 0 ||
                                                       section.rfind("/", 0) == 0;
                                            }))
            << name;
        EXPECT_NE(names.end(), std::find(names.begin(), names.end(), ".text")) << name;
    }
}

// Stripping rewrites the image: its checksum is written again, as the linker wrote it.
TEST(DllImage, ShippedBinariesCarryAValidChecksum) {
    for (const char* name : {"ZelPlatformMethods64.dll", "zelplat.exe"}) {
        DWORD stored = 0xDEADBEEF;
        DWORD computed = 0xDEADBEEF;
        ASSERT_EQ(static_cast<DWORD>(CHECKSUM_SUCCESS),
                  ::MapFileAndCheckSumA(zeltest::BuiltFile(name).c_str(), &stored, &computed))
            << name;
        EXPECT_NE(0u, stored) << name;
        EXPECT_EQ(computed, stored) << name;
    }
}

// The canary is checked at run time: a function that overruns its stack buffer never returns, and
// the process ends with the fail-fast status of a stack buffer overrun. A short copy runs as usual.
TEST(StackProtector, AnOverrunBufferEndsTheProcessBeforeTheFunctionReturns) {
    const std::string program = "\"" + zeltest::BuiltFile("zel_kit_stack_smash.exe") + "\" ";
    const zeltest::ProcessResult fits = zeltest::RunProgram(program + "short");
    EXPECT_EQ(0u, fits.exitCode);
    EXPECT_EQ("copied short\r\nreturned\r\n", fits.out);
    const zeltest::ProcessResult overrun = zeltest::RunProgram(program + std::string(64, 'x'));
    EXPECT_EQ(static_cast<DWORD>(STATUS_STACK_BUFFER_OVERRUN), overrun.exitCode);
    EXPECT_EQ(std::string::npos, overrun.out.find("returned"));
}

// The doctor's test hook is built into the suite's own zelplat only: the shipped one holds
// neither the variable's name nor the words that arm it.
TEST(DllImage, ShippedZelplatHasNoTestHook) {
    const std::vector<char> shipped = fileBytes(zeltest::BuiltFile("zelplat.exe"));
    ASSERT_FALSE(shipped.empty());
    EXPECT_FALSE(holds(shipped, "ZELPLAT_TEST_HOOK"));
    EXPECT_FALSE(holds(shipped, "deny-32-bit-contact-entry"));
    const std::vector<char> forTests = fileBytes(zeltest::BuiltFile("zelplat_test_hooks.exe"));
    EXPECT_TRUE(holds(forTests, "ZELPLAT_TEST_HOOK"));
}

TEST(DllImage, ZelplatCarriesAVersionResourceOfItsOwn) {
    expectVersionResource("zelplat.exe", VFT_APP);
}

// libZelPlatformMethods64.dll.a for mingw-w64 and clang clients, ZelPlatformMethods64.lib for
// MSVC clients.
TEST(DllImage, ImportLibrariesAreProduced) {
    for (const char* name : {"libZelPlatformMethods64.dll.a", "ZelPlatformMethods64.lib"}) {
        const std::string lib = zeltest::ProgramFolder() + "..\\lib\\" + name;
        EXPECT_NE(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesA(lib.c_str())) << lib;
    }
}

} // namespace
