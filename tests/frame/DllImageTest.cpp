// What the built DLL file itself declares: its export names, the DLLs it imports, its version.
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
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

TEST(DllImage, VersionResourceNamesTheProductAndItsVersion) {
    const std::string path = zeltest::BuiltFile("ZelPlatformMethods64.dll");
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), &handle);
    ASSERT_NE(0u, size);
    std::vector<char> block(size);
    ASSERT_TRUE(::GetFileVersionInfoA(path.c_str(), handle, size, block.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(::VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(static_cast<DWORD>(VFT_DLL), fixed->dwFileType);
    EXPECT_EQ(static_cast<DWORD>((ZEL_TEST_VERSION_MAJOR << 16) | ZEL_TEST_VERSION_MINOR),
              fixed->dwFileVersionMS);
    char* text = nullptr;
    ASSERT_TRUE(::VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\ProductName",
                                 reinterpret_cast<void**>(&text), &length));
    EXPECT_STREQ("ZelPlatformMethods64", text);
    ASSERT_TRUE(::VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\FileVersion",
                                 reinterpret_cast<void**>(&text), &length));
    EXPECT_STREQ(ZEL_TEST_PROJECT_VERSION ".0", text);
}

TEST(DllImage, DistributionCopyIsStrippedButExportsAndLoadsTheSame) {
    const std::string copy = zeltest::ProgramFolder() + "..\\dist\\ZelPlatformMethods64.dll";
    const PeFile pe(copy);
    ASSERT_NE(nullptr, pe.headers()) << copy;
    EXPECT_EQ(0u, pe.headers()->FileHeader.NumberOfSymbols); // no symbol table left
    EXPECT_EQ(exportNames(PeFile(zeltest::BuiltFile("ZelPlatformMethods64.dll"))), exportNames(pe));
    const TqUniqueModule module(::LoadLibraryA(copy.c_str()));
    ASSERT_TRUE(module.valid()) << ::GetLastError();
    const auto getInterface = reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(
        reinterpret_cast<void*>(::GetProcAddress(module.get(), "ZelPlatformGetExportedInterface")));
    ASSERT_NE(nullptr, getInterface);
    ZelPlatformExportedInterface table{};
    EXPECT_EQ(0, getInterface(&table));
    char* version = nullptr;
    int length = 0;
    EXPECT_EQ(0, table.GetFileVersion(copy.c_str(), &version, &length, nullptr));
    EXPECT_STREQ("1", version);
    table.FreeStringData(&version);
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
