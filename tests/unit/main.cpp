// The unit test program: enters a device root of its own before the tests run.
//
// Started plainly it makes a root, runs itself inside through enter_root with the kernel stand-in preloaded,
// and removes the root afterwards; the environment tells the inner run apart.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr char inside_mark[] = "DEVICE_ROOT_INSIDE";

volatile pid_t child;

// Whoever stops this program stops the inner run; the root is removed all the same.
void stop_child(int signal_number) {
  if (child > 0) kill(child, signal_number);
}

int run(const std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const pid_t forked = fork();
  if (forked == 0) {
    execv(argv[0], argv.data());
    perror(argv[0]);
    _exit(127);
  }
  child = forked;
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void set_inner_environment() {
  setenv(inside_mark, "1", 1);
  setenv("PATH", "/sbin:/bin:/usr/sbin:/usr/bin", 1);
  setenv("LD_PRELOAD", "/.harness/bin/libkernel_stand_in.so", 1);
  // The program replaces strings that it never frees, by design.
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0:log_path=/.harness/report", 1);
  setenv("UBSAN_OPTIONS", "print_stacktrace=1:log_path=/.harness/report", 1);
  // A build that counts what is covered; others take no notice.
  setenv("LLVM_PROFILE_FILE", "/.harness/build/coverage/%m%c.profraw", 1);
}

// What a test that brought the program down had printed, and the reports of sanitizers, would be lost with
// the root.
void show_remains(const std::filesystem::path& root) {
  for (const auto& entry : std::filesystem::directory_iterator(root / ".harness")) {
    const std::string name = entry.path().filename();
    if (name.starts_with("report") || name == "printed") {
      std::cerr << std::ifstream(entry.path()).rdbuf();
      std::cerr.clear();
    }
  }
}

// Results are asked for by a path of the host, which the inner run cannot see: it writes them into the root.
class result_file {
 public:
  // Takes a word of the command line; returns the word for the inner run.
  std::string translate(const std::string& word) {
    const std::string option = "--gtest_output=";
    const size_t colon = word.find(':');
    if (!word.starts_with(option) || colon == std::string::npos) return word;
    wanted_ = word.substr(colon + 1);
    return word.substr(0, colon + 1) + inside;
  }

  void fetch(const std::filesystem::path& root) const {
    const std::filesystem::path written = root.string() + inside;
    if (wanted_.empty() || !std::filesystem::exists(written)) return;
    if (wanted_.has_parent_path()) std::filesystem::create_directories(wanted_.parent_path());
    std::filesystem::copy_file(written, wanted_, std::filesystem::copy_options::overwrite_existing);
  }

 private:
  static constexpr char inside[] = "/.harness/results";
  std::filesystem::path wanted_;
};

int run_inside(int argc, char* argv[]) {
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string enter_root = self.parent_path() / "tests" / "enter_root";
  std::string root = std::filesystem::temp_directory_path() / "unit_tests.XXXXXX";
  if (mkdtemp(root.data()) == nullptr) {
    perror(root.c_str());
    return 1;
  }
  set_inner_environment();
  signal(SIGINT, stop_child);
  signal(SIGTERM, stop_child);
  int status = run({enter_root, "make", root});
  if (status == 0) {
    std::vector<std::string> words = {enter_root,
                                      "run",
                                      root,
                                      "-b",
                                      self.parent_path().string() + ":/.harness/build",
                                      "--",
                                      "/.harness/build/" + self.filename().string()};
    result_file results;
    for (int i = 1; i < argc; i++)
      words.push_back(results.translate(argv[i]));
    status = run(words);
    results.fetch(root);
    if (status != 0) show_remains(root);
  }
  std::filesystem::remove_all(root);
  return status;
}

bool only_lists(int argc, char* argv[]) {
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--gtest_list_tests") == 0) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (getenv(inside_mark) == nullptr && !only_lists(argc, argv)) return run_inside(argc, argv);
  setvbuf(stdout, nullptr, _IOLBF, 0);  // as on a terminal: in order with what tools and perror print
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
