// The device that unit tests run on, as device_root.h says.
#include "device_root.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "control.h"
#include "skeleton.h"

namespace {

constexpr char printed_file[] = "/.harness/printed";

[[noreturn]] void die(const std::string& what) {
  fprintf(stderr, "device root: %s: %s\n", what.c_str(), strerror(errno));
  abort();
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);)
    parts.push_back(part);
  if (text.ends_with(separator)) parts.emplace_back();
  return parts;
}

std::string unescape(const std::string& field) {
  std::string text;
  for (size_t i = 0; i < field.size(); i++) {
    if (field.compare(i, 2, "\\x") == 0) {
      text += static_cast<char>(std::stoi(field.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::string join_words(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    const bool plain = !word.empty() && word.find_first_of(" \t\n'\"\\") == std::string::npos;
    line += (line.empty() ? "" : " ") + (plain ? word : "'" + word + "'");
  }
  return line;
}

device_event parse_event(const std::string& line) {
  std::vector<std::string> parts = split(line, '\t');
  device_event event = {std::stod(parts.at(0)) / 1e6, std::stoi(parts.at(1)), parts.at(2), {}};
  for (size_t i = 3; i < parts.size(); i++)
    event.fields.push_back(unescape(parts[i]));
  return event;
}

// Descriptor `target` shows what `fd` showed, which is closed.
void move_descriptor(int fd, int target) {
  if (fd < 0 || dup2(fd, target) != target) die("descriptor " + std::to_string(target));
  if (fd != target) close(fd);
}

template <size_t Size>
void copy_text(char (&target)[Size], const std::string& text) {
  if (text.size() >= Size) die("too long for a rule: " + text);
  memset(target, 0, Size);
  memcpy(target, text.data(), text.size());
}

}  // namespace

std::string device_event::text() const {
  if (kind == "run") return "run " + join_words({fields.begin() + 1, fields.end()});
  if (kind == "ioctl") return "ioctl " + fields[0] + " " + fields[1] + " " + fields[2] + " -> " + fields[3];
  if (kind == "write" || kind == "read") return kind + " " + fields[0] + " " + fields[1];
  if (kind == "select") return "select " + fields[1];
  std::string text = kind;
  for (const std::string& field : fields)
    text += " " + field;
  return text;
}

// ---------------------------------------------------------------------------------------------- serial ports

serial_port::serial_port(int number)
    : path_("/dev/ttyS" + std::to_string(number)),
      master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) die("pseudo-terminal");
  const std::string name = ptsname(master_);
  slave_ = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  close(open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  if (slave_ < 0 || mount(name.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) != 0) die(path_);
}

serial_port::~serial_port() {
  umount2(path_.c_str(), MNT_DETACH);
  unlink(path_.c_str());
  close(slave_);
  close(master_);
}

void serial_port::send(const std::string& bytes) const {
  if (offer(bytes, 10000) != bytes.size()) die("nobody reads " + path_);
}

size_t serial_port::offer(const std::string& bytes, int wait_ms) const {
  size_t done = 0;
  while (done < bytes.size()) {
    pollfd ready = {master_, POLLOUT, 0};
    if (poll(&ready, 1, wait_ms) != 1) break;
    const ssize_t sent = write(master_, bytes.data() + done, bytes.size() - done);
    if (sent > 0) done += static_cast<size_t>(sent);
  }
  return done;
}

std::string serial_port::received(int wait_ms) const {
  std::string bytes;
  char buffer[4096];
  pollfd ready = {master_, POLLIN, 0};
  poll(&ready, 1, wait_ms);
  for (ssize_t got; (got = read(master_, buffer, sizeof buffer)) > 0;)
    bytes.append(buffer, static_cast<size_t>(got));
  return bytes;
}

termios serial_port::settings() const {
  termios settings = {};
  if (tcgetattr(slave_, &settings) != 0) die("settings of " + path_);
  return settings;
}

void serial_port::set_settings(const termios& settings) const {
  if (tcsetattr(slave_, TCSANOW, &settings) != 0) die("settings of " + path_);
}

// ---------------------------------------------------------------------------------------------- the root
// itself

device_root::device_root() {
  fflush(nullptr);
  saved_input_ = fcntl(0, F_DUPFD_CLOEXEC, 100);
  saved_output_ = fcntl(1, F_DUPFD_CLOEXEC, 100);
  saved_error_ = fcntl(2, F_DUPFD_CLOEXEC, 100);
  skeleton_wipe("");
  skeleton_make("");
  set_input("");
  move_descriptor(open(printed_file, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644), 1);
  if (dup2(1, 2) != 2) die("standard error");
  const int fd = open(CONTROL_FILE, O_RDWR | O_CLOEXEC);
  void* page = mmap(nullptr, sizeof *control_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (page == MAP_FAILED) die(CONTROL_FILE);
  close(fd);
  control_ = static_cast<control*>(page);
}

// What a failed test printed is shown: GoogleTest's own messages stand among it.
device_root::~device_root() {
  drop_rules();
  fflush(nullptr);
  move_descriptor(saved_input_, 0);
  move_descriptor(saved_output_, 1);
  move_descriptor(saved_error_, 2);
  clearerr(stdin);
  if (::testing::Test::HasFailure()) {
    const std::string all = read_file(printed_file);
    fwrite(all.data(), 1, all.size(), stdout);
    for (const device_event& event : all_events())
      printf("    %s\n", event.text().c_str());
  }
  if (truncate(printed_file, 0) != 0) die(printed_file);
  munmap(control_, sizeof *control_);
}

// ---------------------------------------------------------------------------------------------- files

void device_root::write_file(const std::string& path, const std::string& content) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << content).flush()) die("write " + path);
}

std::string device_root::read_file(const std::string& path) const {
  std::ifstream file(path, std::ios::binary);
  if (!file) die("read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void device_root::make_sparse(const std::string& path, uint64_t size) const {
  write_file(path, "");
  if (truncate(path.c_str(), static_cast<off_t>(size)) != 0) die("truncate " + path);
}

void device_root::make_sink(const std::string& path) const {
  ::remove(path.c_str());
  if (symlink("/dev/null", path.c_str()) != 0) die("symlink " + path);
}

bool device_root::exists(const std::string& path) const {
  return access(path.c_str(), F_OK) == 0;
}

void device_root::remove(const std::string& path) const {
  if (::remove(path.c_str()) != 0) die("remove " + path);
}

void device_root::set_partitions(const std::vector<partition_row>& rows) const {
  std::string text = "dev:    size   erasesize  name\n";
  for (int number = 0; exists("/dev/mtd" + std::to_string(number)); number++) {
    remove("/dev/mtd" + std::to_string(number));
  }
  for (size_t i = 0; i < rows.size(); i++) {
    char columns[64];
    snprintf(columns, sizeof columns, "mtd%zu: %08llx %08x", i, static_cast<unsigned long long>(rows[i].size),
             rows[i].erase_size);
    text += std::string(columns) + " \"" + rows[i].name + "\"\n";
    make_sparse("/dev/mtd" + std::to_string(i), rows[i].size);
  }
  write_file("/proc/mtd", text);
}

std::map<std::string, std::string> device_root::env() const {
  std::map<std::string, std::string> values;
  std::ifstream file(ENV_FILE);
  for (std::string line; std::getline(file, line);) {
    values[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
  }
  return values;
}

void device_root::set_env(const std::string& name, const std::string& value) const {
  std::map<std::string, std::string> values = env();
  values[name] = value;
  std::string text;
  for (const auto& [key, content] : values)
    text += key + "=" + content + "\n";
  write_file(ENV_FILE, text);
}

// ---------------------------------------------------------------------------------------------- answers and
// failures

void device_root::answer(const std::string& tool, const tool_answer& answer) {
  char order[32] = "3";
  if (answer.times > 0 || !answer.when.empty()) {
    snprintf(order, sizeof order, "%c-%04zu", answer.times > 0 ? '1' : '2', answer_names_.size());
  }
  const std::string key = tool + "\n" + answer.when + "\n" + (answer.times > 0 ? order : "");
  const std::string name = answer_names_.try_emplace(key, order).first->second;
  const std::string base = ANSWERS_DIRECTORY "/" + tool + "/" + name;
  std::filesystem::create_directory(ANSWERS_DIRECTORY "/" + tool);
  write_file(base + ".out", answer.out);
  write_file(base + ".err", answer.err);
  std::ostringstream keys;
  keys << "when=" << answer.when << "\ntimes=" << answer.times << "\nstatus=" << answer.status
       << "\nsignal=" << answer.signal_number << "\ndelay=" << answer.delay_ms << "\nhold=" << answer.hold_ms
       << "\nreads=" << answer.reads << "\nacts=" << answer.acts << "\n";
  write_file(base + ".rule", keys.str());
  expected_answers_.erase(name + " " + tool);
  if (!answer.optional) expected_answers_[name + " " + tool] = "answer of " + tool + " " + answer.when;
}

void device_root::add_rule(const std::string& call, const std::string& match, const call_failure& failure,
                           const std::string& data) {
  if (next_rule_ == CONTROL_RULES) die("too many rules for calls");
  call_rule& rule = control_->rules[next_rule_];
  rule = {};
  copy_text(rule.match, match);
  rule.skip = failure.after;
  rule.times = failure.times;
  rule.result = failure.result;
  rule.error = failure.error;
  rule.data_length = static_cast<uint32_t>(data.size());
  if (data.size() > sizeof rule.data) die("too much data for an ioctl");
  memcpy(rule.data, data.data(), data.size());
  copy_text(rule.call, call);
  if (!failure.optional) expected_calls_[next_rule_] = call + " " + match;
  next_rule_++;
}

void device_root::fail_call(const std::string& call, const call_failure& failure) {
  add_rule(call, failure.match, failure, "");
}

namespace {

std::string ioctl_match(uint32_t request, const std::string& path) {
  char number[16];
  snprintf(number, sizeof number, "0x%08x", request);
  return path.empty() ? number : path + " " + number;
}

}  // namespace

void device_root::fail_ioctl(uint32_t request, int error, const std::string& path) {
  add_rule("ioctl", ioctl_match(request, path), {.error = error, .result = -1}, "");
}

void device_root::answer_ioctl(uint32_t request, const std::string& data, int result,
                               const std::string& path) {
  add_rule("ioctl", ioctl_match(request, path), {.error = 0, .result = result}, data);
}

void device_root::drop_rules() {
  for (call_rule& rule : control_->rules)
    rule.call[0] = '\0';
}

void device_root::set_free_space(uint64_t blocks, long block_size) {
  control_->free_blocks = blocks;
  control_->block_size = block_size;
}

void device_root::set_sleep_scale(double scale) {
  control_->sleep_scale = scale;
}

void device_root::trace(const std::string& prefix) {
  for (auto& slot : control_->trace) {
    if (slot[0] == '\0') return copy_text(slot, prefix);
  }
  die("too many traces");
}

lines device_root::unused() const {
  lines never;
  std::map<std::string, std::string> answers = expected_answers_;
  for (const device_event& event : all_events()) {
    if (event.kind == "answer") answers.erase(event.fields[0] + " " + event.fields[1]);
  }
  for (const auto& [key, text] : answers)
    never.push_back(text);
  for (const auto& [slot, text] : expected_calls_) {
    if (control_->rules[slot].fired == 0) never.push_back(text);
  }
  return never;
}

// ---------------------------------------------------------------------------------------------- what
// happened

std::vector<device_event> device_root::all_events() const {
  std::vector<device_event> events;
  std::ifstream log(EVENT_LOG_FILE);
  if (std::filesystem::file_size(EVENT_LOG_FILE) >= EVENT_LOG_LIMIT) die("the log is full");
  for (std::string line; std::getline(log, line);)
    events.push_back(parse_event(line));
  return events;
}

std::vector<device_event> device_root::events() const {
  std::vector<device_event> events = all_events();
  events.erase(events.begin(), events.begin() + static_cast<ptrdiff_t>(mark_));
  return events;
}

std::vector<device_event> device_root::events(const std::string& kind) const {
  std::vector<device_event> chosen;
  for (device_event& event : events()) {
    if (event.kind == kind) chosen.push_back(std::move(event));
  }
  return chosen;
}

lines device_root::ran() const {
  lines ran;
  for (const device_event& event : events("run"))
    ran.push_back(event.text().substr(strlen("run ")));
  return ran;
}

lines device_root::shell_lines() const {
  lines composed;
  for (const device_event& event : events("shell"))
    composed.push_back(event.fields[0]);
  return composed;
}

lines device_root::sequence() const {
  lines sequence;
  for (const device_event& event : events()) {
    for (const char* kind : {"run", "ioctl", "sleep", "write", "select"}) {
      if (event.kind == kind) sequence.push_back(event.text());
    }
  }
  return sequence;
}

std::vector<double> device_root::sleeps() const {
  std::vector<double> seconds;
  for (const device_event& event : events("sleep"))
    seconds.push_back(std::stod(event.fields[0]));
  return seconds;
}

void device_root::forget() {
  mark_ = all_events().size();
}

std::string device_root::printed() {
  fflush(stdout);
  const std::string all = read_file(printed_file);
  const std::string fresh = all.substr(printed_to_);
  printed_to_ = all.size();
  return fresh;
}

// A file that is gone serves, too, but a pipe or terminal would make tools read it, as they do on the device.
void device_root::set_input(const std::string& bytes) const {
  const int fd = memfd_create("input", MFD_CLOEXEC);
  if (fd < 0 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) die("input");
  lseek(fd, 0, SEEK_SET);
  move_descriptor(fd, 0);
  rewind(stdin);
}

void device_root::set_input(const serial_port& port) const {
  move_descriptor(fcntl(port.device_fd(), F_DUPFD_CLOEXEC, 100), 0);
  clearerr(stdin);
}
