// How a run treats its target: overwriting, failing, being interrupted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <tuple>

#include "tests/tools/tool.h"

extern char** environ;

namespace qntest {
namespace {

const char kRecording[] = "/usr/share/sounds/alsa/Front_Center.wav";

TEST(Run, OverwritesOnlyWhenForced) {
  const ScratchFolder folder;
  const std::string out = folder.Native("out.wav");
  const Bytes old = {'o', 'l', 'd'};
  WriteFileBytes(out, old);
  ASSERT_EQ(chmod(out.c_str(), 0640), 0);
  const ToolRun refused = Qnwave({"convert", kRecording, out});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_NE(refused.err.find("(0x8004E032)"), std::string::npos) << refused.err;
  EXPECT_EQ(ReadFileBytes(out), old);

  // A link stays one, and a file keeps its permissions.
  std::filesystem::create_symlink("out.wav", folder.Native("link.wav"));
  const ToolRun forced = Qnwave({"convert", kRecording, folder.Native("link.wav"), "--force"});
  EXPECT_EQ(forced.exit, 0);
  EXPECT_EQ(forced.err, "") << "no bar outside a terminal";
  EXPECT_NE(forced.out.find("68,545 frames"), std::string::npos) << forced.out;
  EXPECT_TRUE(std::filesystem::is_symlink(folder.Native("link.wav")));
  EXPECT_EQ(ReadSound(out).samples, ReadSound(kRecording).samples);
  struct stat info = {};
  ASSERT_EQ(stat(out.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);

  // A file can be converted in its place.
  EXPECT_EQ(Qnwave({"convert", out, out, "--force", "--type", "f32"}).exit, 0);
  EXPECT_EQ(ReadSound(out).samples, ReadSound(kRecording).samples);
  EXPECT_EQ(List(folder.Native("")), (std::vector<std::string>{"link.wav", "out.wav"}));
}

TEST(Run, LeavesNothingBehindWhenItFails) {
  const ScratchFolder folder;
  const std::string out = folder.Native("out.wav");
  const Bytes old = {'o', 'l', 'd'};
  for (const bool exists : {false, true}) {
    if (exists) WriteFileBytes(out, old);
    // A limit on the size of files stands for a full disk: 4 blocks of 1,024 or 512 bytes.
    const ToolRun run = Qnwave({"convert", kRecording, out, "--force"}, "ulimit -f 4;");
    EXPECT_EQ(run.exit, 1);
    EXPECT_NE(run.err.find("0x8004E03A"), std::string::npos) << run.err;
    EXPECT_EQ(List(folder.Native("")).size(), exists ? 1u : 0u);
    EXPECT_EQ(ReadFileBytes(out), exists ? old : Bytes());
  }
  EXPECT_EQ(Qnwave({"convert", kRecording, folder.Native("none/out.wav")}).exit, 1);
}

// Starts the tool on hours of silence and sends signals from when it is at work to its end, as of a key that
// is held down.
int Interrupt(const ScratchFolder& folder, const char* command, const char* option, int signal) {
  const std::string in = folder.Native("in.wav");
  const std::string out = folder.Native("out.w64");
  std::vector<std::string> words = {QNWAVE, command, in, out, "--to-end", "--force", option};
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  EXPECT_EQ(posix_spawn(&process, QNWAVE, &actions, nullptr, pointers.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  // The temporary file is there from the first moment of the work on.
  while (List(folder.Native("")).size() < 3 && waitpid(process, nullptr, WNOHANG) == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  int status = 0;
  do {
    kill(process, signal);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  } while (waitpid(process, &status, WNOHANG) == 0);
  return status;
}

TEST(Run, KeepsTheTargetWhenItIsInterrupted) {
  const Bytes old = {'o', 'l', 'd'};
  using Row = std::tuple<const char*, const char*, int>;
  for (const auto& [command, option, signal] :
       {Row("convert", "--type=s16", SIGINT), Row("convert", "--type=s16", SIGTERM),
        Row("convert", "--type=s16", SIGHUP), Row("convert", "--type=s16", SIGKILL),
        Row("cut", "--start=7", SIGINT), Row("mix", "--gain=1", SIGINT)}) {
    const ScratchFolder folder;
    WriteFileBytes(folder.Native("out.w64"), old);
    MakeSparse(folder.Native("in.wav"), WaveFile(Record(1, 1, 48'000, 8), {}), 800 << 20);
    const int status = Interrupt(folder, command, option, signal);
    EXPECT_EQ(ReadFileBytes(folder.Native("out.w64")), old) << signal;
    if (signal == SIGKILL) {
      EXPECT_TRUE(WIFSIGNALED(status));
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal) << status;
      EXPECT_EQ(List(folder.Native("")), (std::vector<std::string>{"in.wav", "out.w64"})) << signal;
    }
  }
}

}  // namespace
}  // namespace qntest
