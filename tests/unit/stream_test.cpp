// The receive loop: how much it asks for, how long it waits, what it hands on, and every way it ends.
#include "util/stream.h"

#include <chrono>

#include "loader_test.h"

namespace {

// -------------------------------------------------------------------------------------------- size of a read

unsigned largest_step(unsigned remaining) {
  unsigned best = 1;
  for (const unsigned step : {16U, 32U, 64U, 256U, 512U, 1024U, 4096U})
    best = step <= remaining ? step : best;
  return best;
}

TEST(net_size_to_read_test, examples) {
  EXPECT_EQ(net_size_to_read(300, 0), 256U);
  EXPECT_EQ(net_size_to_read(16, 0), 16U);
  EXPECT_EQ(net_size_to_read(15, 0), 1U);
  EXPECT_EQ(net_size_to_read(0, 0), 1U);
  EXPECT_EQ(net_size_to_read(128, 0), 64U) << "128 is no step";
  EXPECT_EQ(net_size_to_read(2048, 0), 1024U) << "nor is 2048";
}

TEST(net_size_to_read_test, largest_step_that_does_not_exceed_the_rest) {
  for (unsigned remaining = 0; remaining <= 5000; remaining++) {
    for (const unsigned done : {0U, 1U, 4096U, 0x80000000U}) {
      ASSERT_EQ(net_size_to_read(done + remaining, done), largest_step(remaining))
          << remaining << " " << done;
    }
  }
}

TEST(net_size_to_read_test, totals_that_need_32_bits) {
  EXPECT_EQ(net_size_to_read(0xFFFFFFFF, 0), 4096U);
  EXPECT_EQ(net_size_to_read(0xFFFFFFFF, 0x80000000), 4096U);
  EXPECT_EQ(net_size_to_read(0xFFFFFFFF, 0xFFFFFFFE), 1U);
  EXPECT_EQ(net_size_to_read(0x80000000, 0x7FFFFFF0), 16U);
}

// --------------------------------------------------------------------------------------------------- waiting

class stream_wait_test : public loader_test {};

TEST_F(stream_wait_test, a_byte_or_the_end_of_input_ends_the_wait) {
  sender source("x");
  EXPECT_TRUE(stream_wait(source.fd(), 0));
  char byte;
  EXPECT_EQ(read(source.fd(), &byte, 1), 1);
  EXPECT_FALSE(stream_wait(source.fd(), 0));
  source.hang_up();
  EXPECT_TRUE(stream_wait(source.fd(), 0));
}

TEST_F(stream_wait_test, time_is_up_with_errno_etimedout) {
  const sender source("");
  errno = 0;
  EXPECT_FALSE(stream_wait(source.fd(), 0));
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(stream_wait_test, a_failing_wait_keeps_its_errno) {
  const sender source("x");
  root.fail_call("select", {.error = EINTR});
  EXPECT_FALSE(stream_wait(source.fd(), 3));
  EXPECT_EQ(errno, EINTR);
}

TEST_F(stream_wait_test, descriptors_that_a_set_cannot_hold_are_refused) {
  for (const int fd : {-1, 1024, 100000}) {
    errno = 0;
    EXPECT_FALSE(stream_wait(fd, 0)) << fd;
    EXPECT_EQ(errno, EBADF) << fd;
  }
}

// ------------------------------------------------------------------------------------------------- receiving

class stream_receive_test : public loader_test {
 protected:
  // Receives into `received_`, noting the size of each piece.
  stream_status receive(const stream_source& source) {
    return stream_receive(source, &checksum_, [this](const uint8_t* piece, size_t size) {
      received_.append(reinterpret_cast<const char*>(piece), size);
      pieces_.push_back(size);
      return received_.size() < refuse_from_;
    });
  }

  std::string received_;
  std::vector<size_t> pieces_;
  size_t refuse_from_ = SIZE_MAX;
  uint64_t checksum_ = 1;
};

TEST_F(stream_receive_test, pieces_shrink_towards_the_end_and_what_follows_stays) {
  const std::string bytes = noise(2 * 4096 + 1024 + 512 + 256 + 64 + 32 + 16 + 3);
  sender source(bytes + "what follows");
  EXPECT_EQ(receive({.fd = source.fd(), .total = static_cast<uint32_t>(bytes.size())}),
            stream_status::complete);
  EXPECT_EQ(received_, bytes);
  EXPECT_EQ(pieces_, std::vector<size_t>({4096, 4096, 1024, 512, 256, 64, 32, 16, 1, 1, 1}));
  EXPECT_EQ(checksum_, 0xFFFFFFFF00000000 | plain_checksum(bytes));
  EXPECT_EQ(source.rest(), "what follows");
}

TEST_F(stream_receive_test, nothing_to_receive_waits_for_nothing) {
  root.trace("select");
  EXPECT_EQ(receive({.fd = -1, .total = 0}), stream_status::complete);
  EXPECT_EQ(pieces_, std::vector<size_t>());
  EXPECT_EQ(checksum_, 0xFFFFFFFFFFFFFFFF);
  EXPECT_EQ(root.sequence(), lines());
}

TEST_F(stream_receive_test, without_a_checksum_the_bytes_are_the_same) {
  const sender source("abcdef");
  std::string got;
  EXPECT_EQ(stream_receive({.fd = source.fd(), .total = 6}, nullptr,
                           [&got](const uint8_t* piece, size_t size) {
                             got.append(reinterpret_cast<const char*>(piece), size);
                             return true;
                           }),
            stream_status::complete);
  EXPECT_EQ(got, "abcdef");
}

TEST_F(stream_receive_test, the_first_wait_may_be_longer_and_every_other_is_three_seconds) {
  const sender source(noise(4096 + 16 + 1));
  root.trace("select");
  EXPECT_EQ(receive({.fd = source.fd(), .total = 4096 + 16 + 1, .first_seconds = 30}),
            stream_status::complete);
  EXPECT_EQ(root.sequence(), lines({"select 30", "select 3"})) << "behind a whole piece nothing is asked";
}

TEST_F(stream_receive_test, a_pause_behind_a_whole_piece_is_waited_for) {
  const sender source(noise(4096));
  root.trace("select");
  EXPECT_EQ(receive({.fd = source.fd(), .total = 4097}), stream_status::wait_failed);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(root.sequence(), lines({"select 3", "select 3"}));
}

TEST_F(stream_receive_test, the_descriptor_blocks_again_afterwards) {
  const sender source(noise(100));
  EXPECT_EQ(receive({.fd = source.fd(), .total = 100}), stream_status::complete);
  EXPECT_EQ(fcntl(source.fd(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(stream_receive_test, byte_by_byte_asks_for_single_bytes) {
  sender source(noise(40) + "rest");
  EXPECT_EQ(receive({.fd = source.fd(), .total = 40, .byte_by_byte = true}), stream_status::complete);
  EXPECT_EQ(pieces_, std::vector<size_t>(40, 1));
  EXPECT_EQ(source.rest(), "rest");
}

TEST_F(stream_receive_test, end_of_input_before_the_total_ends_without_a_checksum) {
  sender source(noise(100));
  source.hang_up();
  EXPECT_EQ(receive({.fd = source.fd(), .total = 101}), stream_status::ended);
  EXPECT_EQ(errno, ENODATA);
  EXPECT_EQ(received_.size(), 100U);
  EXPECT_EQ(checksum_, 0U);
}

TEST_F(stream_receive_test, a_failed_read_ends_with_its_errno) {
  const sender source(noise(100));
  root.fail_call("read", {.match = "pipe", .error = EIO, .after = 1});
  EXPECT_EQ(receive({.fd = source.fd(), .total = 100}), stream_status::ended);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(received_.size(), 64U);
}

TEST_F(stream_receive_test, a_failed_wait_ends_with_its_errno) {
  const sender source(noise(100));
  root.fail_call("select", {.error = EINTR, .after = 1});
  EXPECT_EQ(receive({.fd = source.fd(), .total = 100}), stream_status::wait_failed);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(received_.size(), 64U);
}

TEST_F(stream_receive_test, short_reads_are_completed) {
  const std::string bytes = noise(9000);
  const sender source(bytes);
  root.fail_call("read", {.match = "pipe", .error = 0, .result = 1001});
  EXPECT_EQ(receive({.fd = source.fd(), .total = 9000}), stream_status::complete);
  EXPECT_EQ(received_, bytes);
  EXPECT_EQ(pieces_[0], 1001U);
  EXPECT_EQ(checksum_, 0xFFFFFFFF00000000 | plain_checksum(bytes));
}

TEST_F(stream_receive_test, a_receiver_that_refuses_ends_the_transfer_at_once) {
  sender source(noise(5000) + "rest");
  refuse_from_ = 4096;
  EXPECT_EQ(receive({.fd = source.fd(), .total = 5000}), stream_status::sink_failed);
  EXPECT_EQ(pieces_, std::vector<size_t>({4096}));
  EXPECT_EQ(source.rest().size(), 5000U - 4096 + 4);
}

TEST_F(stream_receive_test, a_sender_that_stops_is_given_three_real_seconds) {
  const sender source(noise(100));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(receive({.fd = source.fd(), .total = 101}), stream_status::wait_failed);
  EXPECT_EQ(errno, ETIMEDOUT);
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited.count(), 2.9);
  EXPECT_LT(waited.count(), 5.0);
  EXPECT_EQ(received_.size(), 100U) << "most had arrived";
}

TEST_F(stream_receive_test, lengths_beyond_31_bits_arrive_whole) {
  for (const uint32_t length : huge_lengths) {
    const endless_source source;
    uint64_t received = 0;
    uint64_t checksum = 0;
    EXPECT_EQ(stream_receive({.fd = source.fd(), .total = length}, &checksum,
                             [&received](const uint8_t*, size_t size) {
                               received += size;
                               return true;
                             }),
              stream_status::complete);
    EXPECT_EQ(received, length);
    EXPECT_EQ(static_cast<uint32_t>(checksum), checksum_of_zeros);
  }
}

}  // namespace
