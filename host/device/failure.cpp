// The names of the exit statuses, as JSON tells them.
#include "device/failure.h"

const char* device_status_name(int status) {
  switch (status) {
    case status_success:
      return "success";
    case status_device_failed:
      return "device_failed";
    case status_no_prompt:
      return "no_prompt";
    case status_port:
      return "port";
    case status_line_lost:
      return "line_lost";
    case status_restarted:
      return "restarted";
    case status_refused:
      return "refused";
    case status_server:
      return "server";
    case status_interrupted:
      return "interrupted";
    default:
      return "failed";
  }
}
