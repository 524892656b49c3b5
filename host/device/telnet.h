// The telnet protocol as far as a serial port of another computer needs it: bytes of 8 bits (RFC 856), and
// the port's settings and flow (RFC 2217). Knows no sockets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class telnet_port {
 public:
  /// What to say first: the options that we offer and want.
  std::string greeting() const;
  /// What to ask for once the other side has agreed to RFC 2217: `speed` bits per second, 8 data bits, no
  /// parity, one stop bit, and RTS/CTS where `hardware_flow`.
  std::string settings(uint32_t speed, bool hardware_flow) const;

  /// Takes received bytes apart. Result: the data among them; what has to be answered is added to `answer`.
  std::string decode(std::string_view received, std::string& answer);
  /// Result: the bytes that carry `data`.
  static std::string encode(std::string_view data);

  bool agreed() const { return agreed_; }    // the other side does RFC 2217
  bool refused() const { return refused_; }  // it said that it does not
  bool settled() const { return settled_; }  // it has answered every setting
  uint32_t speed() const { return speed_; }  // what it says the port has now; 0 = nothing yet
  /// The other side asks us to wait with data.
  bool suspended() const { return suspended_; }

 private:
  enum class states { data, command, option, subnegotiation, subnegotiation_command };

  void take_option(uint8_t verb, uint8_t option, std::string& answer);
  void take_subnegotiation();

  states state_ = states::data;
  uint8_t verb_ = 0;
  std::string subnegotiation_;
  bool agreed_ = false;
  bool refused_ = false;
  bool settled_ = false;
  bool suspended_ = false;
  uint32_t speed_ = 0;
};
