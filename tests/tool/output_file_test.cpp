// All-or-nothing outputs: nothing appears unless committed, and what the
// folder holds at commit time is checked again, through descriptors, so
// names changed meanwhile cannot redirect the output.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "image_io_error.h"
#include "image_writer.h"
#include "output_file.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Atomic_output_file;
using oqa_tool::Output_folder;

void write_through(int descriptor, const std::string& text) {
  ASSERT_EQ(::write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

TEST(Atomic_output_file, AppearsOnlyWhenCommitted) {
  const tool_test::Scratch_folder folder;
  const Output_folder out(folder.path());
  {
    Atomic_output_file output(out, "out.tiff", false);
    write_through(output.descriptor(), "new");
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.tiff")));
    output.commit();
  }
  EXPECT_EQ(tool_test::text_of(folder.file("out.tiff")), "new");
  EXPECT_EQ(folder.entries(), std::vector<std::string>{"out.tiff"});
}

// Something takes the target's name between the claim and the commit: the
// commit fails, leaves it alone and takes its temporary file away.
struct Late_arrival {
  const char* name;
  bool overwrite;
  const char* arrival;  // shell commands
  const char* problem;
};

class Atomic_output_file_late : public testing::TestWithParam<Late_arrival> {};

TEST_P(Atomic_output_file_late, IsNotReplaced) {
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("other"), {'o', 'l', 'd'});
  {
    const Output_folder out(folder.path());
    Atomic_output_file output(out, "out.raw", GetParam().overwrite);
    write_through(output.descriptor(), "new");
    ASSERT_EQ(std::system(("cd '" + folder.path().string() + "' && " + GetParam().arrival).c_str()),
              0);
    try {
      output.commit();
      ADD_FAILURE() << "committed";
    } catch (const oqa_tool::Image_io_error& error) {
      EXPECT_NE(std::string(error.what()).find(GetParam().problem), std::string::npos)
          << error.what();
    }
  }
  EXPECT_EQ(folder.entries(), (std::vector<std::string>{"other", "out.raw"}));
  EXPECT_EQ(tool_test::text_of(folder.file("other")), "old");
}

INSTANTIATE_TEST_SUITE_P(
    Targets, Atomic_output_file_late,
    testing::Values(Late_arrival{"FileWithoutOverwrite", false, "cp other out.raw", "exists"},
                    Late_arrival{"FifoWithOverwrite", true, "mkfifo out.raw", "not a regular file"},
                    Late_arrival{"LinkWithOverwrite", true, "ln -s other out.raw",
                                 "not a regular file"}),
    [](const testing::TestParamInfo<Late_arrival>& info) { return info.param.name; });

// Whoever can write the folder swaps the temporary name for a link to
// another file: the writer still fills the tool's own file, the other
// file keeps its bytes and mode, and the swapped name is never renamed.
TEST(Atomic_output_file, ALinkSwappedForTheTemporaryFileRedirectsNothing) {
  const tool_test::Scratch_folder folder;
  const std::string victim = folder.file("victim");
  tool_test::write_bytes(victim, {'o', 'l', 'd'});
  ::chmod(victim.c_str(), 0600);
  const Output_folder out(folder.path());
  {
    Atomic_output_file output(out, "out.raw", true);
    const std::string temporary = folder.file(output.temporary_name());
    std::filesystem::rename(temporary, folder.file("moved"));
    std::filesystem::create_symlink(victim, temporary);
    const oqa_tool::Colour_image image{2, 2, QN_COLOR_FORMAT_BGR_PLANAR,
                                       std::vector<std::uint16_t>(12, 0x4141)};
    oqa_tool::write_image(oqa_tool::Output_type::raw, output.descriptor(), image);
    EXPECT_THROW(output.commit(), oqa_tool::Image_io_error);
  }
  EXPECT_EQ(tool_test::text_of(victim), "old");
  struct stat status {};
  ASSERT_EQ(::stat(victim.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  EXPECT_EQ(tool_test::text_of(folder.file("moved")), std::string(24, 'A'));
  EXPECT_EQ(folder.entries(), (std::vector<std::string>{"moved", "victim"}));
}

}  // namespace
