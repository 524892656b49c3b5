// What the four signal settings install, and how their failure is told.
#include "util/signals.h"

#include "loader_test.h"

namespace {

class signals_test : public loader_test {
 protected:
  struct setting {
    const char* name;
    bool (*install)();
    int signal_number;
    const char* failure;
  };
  static constexpr setting settings[] = {
      {"ignore", sigint_install_ignore, SIGINT,
       "NOTE: sigint_install_ignore: Failed to ignore sigint handler, error=Invalid argument\n"},
      {"default", sigint_install_default, SIGINT,
       "NOTE: sigint_install_default: Failed to install sigint handler, error=Invalid argument\n"},
      {"test interrupt", sigint_install_test_interrupt, SIGINT,
       "NOTE: sigint_install_test_interrupt: Failed to install sigint handler, error=Invalid argument\n"},
      {"quit ignore", sigquit_install_ignore, SIGQUIT,
       "NOTE: sigquit_install_ignore: Failed to ignore sigquit handler, error=Invalid argument\n"},
  };

  static struct sigaction action_of(int signal_number) {
    struct sigaction action;
    sigaction(signal_number, nullptr, &action);
    return action;
  }
};

TEST_F(signals_test, an_interruption_counts_while_its_handler_is_installed) {
  EXPECT_FALSE(sigint_interrupted());
  sigint_install_test_interrupt();
  EXPECT_FALSE(sigint_interrupted());
  raise(SIGINT);
  EXPECT_TRUE(sigint_interrupted());
  sigint_install_ignore();
  EXPECT_FALSE(sigint_interrupted());
  sigint_install_test_interrupt();
  EXPECT_FALSE(sigint_interrupted()) << "the next command begins anew";
  raise(SIGINT);
  sigint_install_default();
  EXPECT_FALSE(sigint_interrupted());
}

TEST_F(signals_test, each_failure_is_told) {
  for (const setting& s : settings) {
    root.fail_call("sigaction", {.match = std::to_string(s.signal_number), .error = EINVAL, .times = 1});
    EXPECT_EQ(s.install(), 0) << s.name;
    EXPECT_EQ(root.printed(), s.failure);
  }
}

TEST_F(signals_test, each_succeeds_silently_with_no_mask_and_no_flags) {
  constexpr int of_the_library = 0x04000000;  // SA_RESTORER
  for (const setting& s : settings) {
    EXPECT_EQ(s.install(), 1) << s.name;
    const struct sigaction action = action_of(s.signal_number);
    EXPECT_EQ(action.sa_flags & ~of_the_library, 0) << s.name;
    for (int other = 1; other < NSIG; other++)
      EXPECT_FALSE(sigismember(&action.sa_mask, other) == 1) << s.name << " blocks " << other;
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(signals_test, ignored_signals_end_nothing) {
  EXPECT_EQ(sigint_install_ignore(), 1);
  EXPECT_EQ(sigquit_install_ignore(), 1);
  raise(SIGINT);
  raise(SIGQUIT);
  EXPECT_EQ(action_of(SIGINT).sa_handler, SIG_IGN);
  EXPECT_EQ(action_of(SIGQUIT).sa_handler, SIG_IGN);
}

TEST_F(signals_test, default_undoes_ignoring) {
  EXPECT_EQ(sigint_install_ignore(), 1);
  EXPECT_EQ(sigint_install_default(), 1);
  EXPECT_EQ(action_of(SIGINT).sa_handler, SIG_DFL);
}

TEST_F(signals_test, test_interrupt_clears_the_flag_and_sets_it_on_every_signal) {
  test_interrupted = 1;
  EXPECT_EQ(sigint_install_test_interrupt(), 1);
  EXPECT_EQ(test_interrupted, 0);
  raise(SIGINT);
  EXPECT_EQ(test_interrupted, 1);
  test_interrupted = 0;
  raise(SIGINT);
  EXPECT_EQ(test_interrupted, 1) << "the handler stays installed";
}

TEST_F(signals_test, ending_the_test_interrupt_leaves_the_flag_for_its_reader) {
  EXPECT_EQ(sigint_install_test_interrupt(), 1);
  raise(SIGINT);
  EXPECT_EQ(sigint_install_ignore(), 1);
  EXPECT_EQ(test_interrupted, 1);
}

TEST_F(signals_test, a_deferred_interrupt_counts_afterwards) {
  EXPECT_EQ(sigint_install_test_interrupt(), 1);
  {
    const sigint_deferred guard;
    raise(SIGINT);
    EXPECT_EQ(test_interrupted, 0);
  }
  EXPECT_EQ(test_interrupted, 1);
  test_interrupted = 0;
  raise(SIGINT);
  EXPECT_EQ(test_interrupted, 1) << "nothing is deferred any more";
}

TEST_F(signals_test, a_deferred_interrupt_ends_the_sleep_that_follows_it) {
  EXPECT_EQ(sigint_install_test_interrupt(), 1);
  const sigint_deferred guard;
  EXPECT_TRUE(guard.sleep(0));
  raise(SIGINT);
  EXPECT_FALSE(guard.sleep(UINT32_MAX)) << "it came between the last look and the sleep";
  EXPECT_EQ(test_interrupted, 1);
  test_interrupted = 0;
  raise(SIGINT);
  EXPECT_EQ(test_interrupted, 0) << "deferred again";
}

TEST_F(signals_test, what_a_parent_left_is_forgotten) {
  const int relied_on[] = {SIGCHLD, SIGPIPE, SIGTERM, SIGALRM};
  for (const int number : relied_on)
    signal(number, SIG_IGN);
  sigset_t all;
  sigset_t blocked;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  sigint_install_ignore();
  signals_forget_inherited();
  for (const int number : relied_on)
    EXPECT_EQ(action_of(number).sa_handler, SIG_DFL) << number;
  EXPECT_EQ(action_of(SIGINT).sa_handler, SIG_IGN);
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number < NSIG; number++)
    EXPECT_FALSE(sigismember(&blocked, number) == 1) << number;
}

TEST_F(signals_test, a_broken_pipe_is_only_survived_while_asked_for) {
  EXPECT_EQ(action_of(SIGPIPE).sa_handler, SIG_DFL);
  {
    const sigpipe_ignored guard;
    raise(SIGPIPE);
    EXPECT_EQ(action_of(SIGPIPE).sa_handler, SIG_IGN);
  }
  EXPECT_EQ(action_of(SIGPIPE).sa_handler, SIG_DFL);
}

}  // namespace
