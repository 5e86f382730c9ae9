// How a run treats its target: overwriting, failing, being interrupted.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

class Run : public ToolTest {};

TEST_F(Run, OverwritesOnlyWhenForced) {
  const std::string out = Path("out.wav");
  const Bytes old = {'o', 'l', 'd'};
  WriteFileBytes(out, old);
  ASSERT_EQ(chmod(out.c_str(), 0640), 0);
  ExpectRun(Qnwave({"convert", kRecording, out}), 1, "(0x8004E032)");
  EXPECT_EQ(ReadFileBytes(out), old);

  // A link stays one, and a file keeps its permissions.
  std::filesystem::create_symlink("out.wav", Path("link.wav"));
  const ToolRun forced = Qnwave({"convert", kRecording, Path("link.wav"), "--force"});
  EXPECT_EQ(forced.exit, 0);
  EXPECT_EQ(forced.err, "") << "no bar outside a terminal";
  EXPECT_NE(forced.out.find("68,545 frames"), std::string::npos) << forced.out;
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.wav")));
  EXPECT_EQ(ReadSound(out).samples, ReadSound(kRecording).samples);
  struct stat info = {};
  ASSERT_EQ(stat(out.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);

  // A file can be converted in its place.
  EXPECT_EQ(Qnwave({"convert", out, out, "--force", "--type", "f32"}).exit, 0);
  EXPECT_EQ(ReadSound(out).samples, ReadSound(kRecording).samples);
  EXPECT_EQ(Names(), (std::vector<std::string>{"link.wav", "out.wav"}));
}

TEST_F(Run, LeavesNothingBehindWhenItFails) {
  const std::string out = Path("out.wav");
  const Bytes old = {'o', 'l', 'd'};
  for (const bool exists : {false, true}) {
    if (exists) WriteFileBytes(out, old);
    // A limit on the size of files stands for a full disk: 4 blocks of 1,024 or 512 bytes.
    ExpectRun(Qnwave({"convert", kRecording, out, "--force"}, "ulimit -f 4;"), 1, "0x8004E03A");
    EXPECT_EQ(Names().size(), exists ? 1u : 0u);
    EXPECT_EQ(ReadFileBytes(out), exists ? old : Bytes());
  }
  EXPECT_EQ(Qnwave({"convert", kRecording, Path("none/out.wav")}).exit, 1);
}

TEST_F(Run, KeepsTheTargetWhenItIsInterrupted) {
  const Bytes old = {'o', 'l', 'd'};
  using Row = std::tuple<const char*, const char*, int>;
  for (const auto& [command, option, signal] :
       {Row("convert", "--type=s16", SIGINT), Row("convert", "--type=s16", SIGTERM),
        Row("convert", "--type=s16", SIGHUP), Row("convert", "--type=s16", SIGKILL),
        Row("cut", "--start=7", SIGINT), Row("mix", "--gain=1", SIGINT)}) {
    Write("out.w64", old);
    MakeSparse(Path("in.wav"), WaveFile(Record(1, 1, 48'000, 8), {}), 800 << 20);
    const int status =
        Interrupted({QNWAVE, command, Path("in.wav"), Path("out.w64"), "--to-end", "--force", option}, signal,
                    true, Path(""), 3);
    EXPECT_EQ(Read("out.w64"), old) << signal;
    if (signal == SIGKILL) {
      EXPECT_TRUE(WIFSIGNALED(status));
      for (const std::string& name : Names()) std::filesystem::remove(Path(name));
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal) << status;
      EXPECT_EQ(Names(), (std::vector<std::string>{"in.wav", "out.w64"})) << signal;
    }
  }
}

}  // namespace
}  // namespace qntest
