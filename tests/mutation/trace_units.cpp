// Linked into the unit tests that traces.py makes: a trace for every test.
#include <gtest/gtest.h>

#include <string>

void trace_begin(const char* test);

namespace {

class listener : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo& test) override {
    trace_begin((std::string(test.test_suite_name()) + "." + test.name()).c_str());
  }
};

const bool listening = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new listener);
  return true;
}();

}  // namespace
