// Words: PATH, tcp:HOST:PORT, rfc2217:HOST:PORT, unix:PATH.
#include "device/port_name.h"

#include <fmt/format.h>

#include "device/failure.h"

namespace {

bool take_prefix(std::string& text, const std::string& prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.erase(0, prefix.size());
  return true;
}

// HOST:PORT or [HOST]:PORT; an address of IPv6 has colons of its own.
port_name network_port(port_kind kind, const std::string& text, const std::string& rest) {
  port_name name{.kind = kind, .text = text, .path = {}, .host = {}, .service = {}};
  const size_t colon = rest.rfind(':');
  if (colon != std::string::npos) {
    name.host = rest.substr(0, colon);
    name.service = rest.substr(colon + 1);
  }
  if (name.host.size() > 2 && name.host.front() == '[' && name.host.back() == ']') {
    name.host = name.host.substr(1, name.host.size() - 2);
  }
  if (name.host.empty() || name.service.empty()) {
    throw device_failure(status_port, fmt::format("{}: needs the form HOST:PORT", text));
  }
  return name;
}

}  // namespace

port_name port_name_parse(const std::string& text) {
  std::string rest = text;
  if (take_prefix(rest, "tcp:")) {
    return network_port(port_kind::tcp, text, rest);
  }
  if (take_prefix(rest, "rfc2217:")) {
    return network_port(port_kind::rfc2217, text, rest);
  }
  if (take_prefix(rest, "unix:")) {
    if (rest.empty()) {
      throw device_failure(status_port, fmt::format("{}: needs the form unix:PATH", text));
    }
    return {.kind = port_kind::unix_socket, .text = text, .path = rest, .host = {}, .service = {}};
  }
  if (rest.empty() || rest.find('/') == std::string::npos) {
    throw device_failure(
        status_port,
        fmt::format("'{}' is no port (/dev/ttyUSB0, tcp:HOST:PORT, rfc2217:HOST:PORT, unix:PATH)", text));
  }
  const bool is_pseudo = rest.starts_with("/dev/pts/");
  return {.kind = is_pseudo ? port_kind::pseudo : port_kind::serial,
          .text = text,
          .path = rest,
          .host = {},
          .service = {}};
}
