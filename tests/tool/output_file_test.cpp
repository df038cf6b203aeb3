// All-or-nothing outputs: nothing appears unless committed, an existing file
// is kept without overwrite, replaced with it.
#include <gtest/gtest.h>

#include "image_io_error.h"
#include "output_file.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Atomic_output_file;

TEST(Atomic_output_file, AppearsOnlyWhenCommitted) {
  const tool_test::Scratch_folder folder;
  const std::string target = folder.file("out.tiff");
  {
    Atomic_output_file output(target, false);
    tool_test::write_bytes(output.temporary_path(), {1, 2, 3});
    EXPECT_FALSE(std::filesystem::exists(target));
    output.commit();
  }
  EXPECT_EQ(tool_test::read_bytes(target), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(folder.entries(), std::vector<std::string>{"out.tiff"});
}

TEST(Atomic_output_file, AbandonedOutputLeavesNothing) {
  const tool_test::Scratch_folder folder;
  {
    Atomic_output_file output(folder.file("out.png"), false);
    tool_test::write_bytes(output.temporary_path(), {1, 2, 3});
  }
  EXPECT_TRUE(folder.entries().empty());
}

TEST(Atomic_output_file, KeepsAnExistingFileWithoutOverwrite) {
  const tool_test::Scratch_folder folder;
  const std::string target = folder.file("out.ppm");
  tool_test::write_bytes(target, {9});
  EXPECT_THROW(Atomic_output_file(target, false), oqa_tool::Image_io_error);
  EXPECT_EQ(tool_test::read_bytes(target), std::vector<std::uint8_t>{9});
  EXPECT_EQ(folder.entries(), std::vector<std::string>{"out.ppm"});
}

TEST(Atomic_output_file, DoesNotReplaceAFileThatAppearsMeanwhile) {
  const tool_test::Scratch_folder folder;
  const std::string target = folder.file("out.raw");
  Atomic_output_file output(target, false);
  tool_test::write_bytes(output.temporary_path(), {1});
  tool_test::write_bytes(target, {9});
  EXPECT_THROW(output.commit(), oqa_tool::Image_io_error);
  EXPECT_EQ(tool_test::read_bytes(target), std::vector<std::uint8_t>{9});
}

TEST(Atomic_output_file, ReplacesWithOverwrite) {
  const tool_test::Scratch_folder folder;
  const std::string target = folder.file("out.tiff");
  tool_test::write_bytes(target, {9});
  Atomic_output_file output(target, true);
  tool_test::write_bytes(output.temporary_path(), {1, 2});
  output.commit();
  EXPECT_EQ(tool_test::read_bytes(target), (std::vector<std::uint8_t>{1, 2}));
}

TEST(Atomic_output_file, MissingFolderIsReported) {
  const tool_test::Scratch_folder folder;
  EXPECT_THROW(Atomic_output_file(folder.file("no/such/out.tiff"), false),
               oqa_tool::Image_io_error);
}

}  // namespace
