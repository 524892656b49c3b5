// Memory that is given back.
#include "util/heap_buffer.h"

#include <malloc.h>

#include "loader_test.h"

namespace {

class heap_buffer_test : public loader_test {};

TEST_F(heap_buffer_test, even_no_bytes_are_some_memory) {
  EXPECT_TRUE(heap_buffer(0));
  root.fail_call("malloc", {.match = "1", .error = ENOMEM, .result = 0});
  EXPECT_FALSE(heap_buffer(0)) << "of one byte";
}

// Of the C library's own count: a sanitizer has another one, and sees by itself what is lost.
TEST_F(heap_buffer_test, the_memory_is_given_back_at_its_end) {
  const size_t before = mallinfo2().uordblks;
  { const heap_buffer buffer(10000); }
  EXPECT_EQ(mallinfo2().uordblks, before);
}

}  // namespace
