// The five properties of a minidriver file, read from version resources built by this project.
#include "middleware/TqDriverFileProperties.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

using zeltest::BuiltFile;

TEST(DriverFileProperties, ReadsTheFiveStringsAndSplitsBothVersions) {
    TqDriverRecord record;
    ASSERT_EQ(0, TqReadDriverFileProperties(BuiltFile("civ_idemia_awp.dll"), record));
    EXPECT_EQ("IDEMIA CIVMinidriver x64", record.FileDescription);
    EXPECT_EQ("7.4.12.0", record.FileVersion);
    EXPECT_EQ("7", record.FileVersionMajor);
    EXPECT_EQ("4", record.FileVersionMinor);
    EXPECT_EQ(7, record.fileMajor);
    EXPECT_EQ(4, record.fileMinor);
    EXPECT_EQ("AWP Minidriver Suite", record.ProductName);
    EXPECT_EQ("7.4.12.3", record.ProductVersion);
    EXPECT_EQ("7", record.ProductVersionMajor);
    EXPECT_EQ("4", record.ProductVersionMinor);
    EXPECT_EQ(7, record.productMajor);
    EXPECT_EQ(4, record.productMinor);
    EXPECT_EQ("Copyright (C) IDEMIA 2020", record.Copyright);
    EXPECT_EQ(0u, record.installDate); // not the reader's business
}

TEST(DriverFileProperties, SecondPackageShape) {
    TqDriverRecord record;
    ASSERT_EQ(0, TqReadDriverFileProperties(BuiltFile("civ_idplug.dll"), record));
    EXPECT_EQ("IDPlug CIV Minidriver", record.FileDescription);
    EXPECT_EQ("IDPlug Classic 4.2", record.ProductName);
    EXPECT_EQ("(c) IDEMIA 2021", record.Copyright);
    EXPECT_EQ("4.2.1.7", record.ProductVersion);
}

TEST(DriverFileProperties, VersionTextThatIsNoNumberFailsTheRead) {
    TqDriverRecord record;
    EXPECT_EQ(25, TqReadDriverFileProperties(BuiltFile("civ_bad_version.dll"), record));
}

TEST(DriverFileProperties, FileWithoutVersionResourceOrNoFileFailsTheRead) {
    TqDriverRecord record;
    EXPECT_EQ(11, TqReadDriverFileProperties(BuiltFile("version_none.dll"), record));
    EXPECT_EQ(11, TqReadDriverFileProperties(BuiltFile("no_such_file.dll"), record));
    EXPECT_EQ(11, TqReadDriverFileProperties("", record));
}

} // namespace
