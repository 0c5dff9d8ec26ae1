// The board layer, against stand-in libraries that are built here as a board's package would install them.
#include "common/board.h"

#include "support.h"

#include <gtest/gtest.h>

namespace {

// Compiles the source into lib64/libpelva.so below the root, so that this one is found.
void install_library(const scratch_directory &root, const std::string &source)
{
    const auto file = root.write("usr/lib64/pelva.cpp", source);
    run_tool("c++ -shared -fPIC -o " + (root.path() / "usr/lib64/libpelva.so").string() + " " +
             file.string());
}

constexpr const char *version_3_21 =
    "extern \"C\" int pvGetVersion(void *version)"
    "{ __builtin_memcpy(version, \"\\x03\\x15\\x34\\x12\", 4); return 0; }\n";

TEST(board, absent_library_or_function_means_no_board)
{
    const scratch_directory empty;
    const replaced_host host(empty.path());
    pelva_version version = {9, 9, 9};
    EXPECT_NE(pvisCard(), 0);
    EXPECT_NE(pvGetVersion(&version), 0);

    install_library(empty, version_3_21);
    EXPECT_NE(pvisCard(), 0);
    empty.write("usr/lib/libpelva.so", "not a library");
    EXPECT_NE(pvisCard(), 0);
    EXPECT_EQ(version.major, 9);
}

TEST(board, answers_are_the_librarys)
{
    const scratch_directory root;
    const replaced_host host(root.path());
    install_library(root, std::string(version_3_21) + "extern \"C\" int pvisCard() { return 0; }\n");
    pelva_version version = {};
    EXPECT_EQ(pvisCard(), 0);
    EXPECT_EQ(pvGetVersion(&version), 0);
    EXPECT_EQ(version.major, 3);
    EXPECT_EQ(version.minor, 0x15);
    EXPECT_EQ(version.build, 0x1234);
}

TEST(board, a_library_that_finds_no_card_is_believed)
{
    const scratch_directory root;
    const replaced_host host(root.path());
    install_library(
        root,
        "extern \"C\" int pvisCard() { return 1; }\nextern \"C\" int pvGetVersion(void *) { return -3; }\n");
    pelva_version version = {};
    EXPECT_EQ(pvisCard(), 1);
    EXPECT_EQ(pvGetVersion(&version), -3);
}

} // namespace
