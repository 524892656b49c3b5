// Commands and options: RFC 854, 856 (binary), 858 (suppress go ahead), 2217 (COM-PORT).
#include "device/telnet.h"

namespace {

constexpr uint8_t iac = 255, verb_dont = 254, verb_do = 253, verb_wont = 252, verb_will = 251, sb = 250,
                  se = 240;
constexpr uint8_t option_binary = 0, option_go_ahead = 3, option_com_port = 44;

// What a client asks for; the other side answers with the same number plus 100.
enum com_port_commands : uint8_t {
  set_baudrate = 1,
  set_datasize = 2,
  set_parity = 3,
  set_stopsize = 4,
  set_control = 5,
  flow_suspend = 8,
  flow_resume = 9,
};
constexpr uint8_t answer_offset = 100;

constexpr size_t longest_subnegotiation = 256;

constexpr uint8_t parity_none = 1, stop_one = 1;
constexpr uint8_t control_no_flow = 1, control_hardware_flow = 3;

std::string bytes(std::initializer_list<uint8_t> list) {
  std::string text;
  for (const uint8_t byte : list) {
    text.push_back(static_cast<char>(byte));
  }
  return text;
}

std::string com_port(uint8_t command, const std::string& value) {
  return bytes({iac, sb, option_com_port, command}) + telnet_port::encode(value) + bytes({iac, se});
}

bool is_ours(uint8_t option) {
  return option == option_binary || option == option_go_ahead || option == option_com_port;
}

}  // namespace

std::string telnet_port::greeting() const {
  return bytes({iac, verb_will, option_com_port, iac, verb_will, option_binary, iac, verb_do, option_binary,
                iac, verb_will, option_go_ahead, iac, verb_do, option_go_ahead});
}

std::string telnet_port::settings(uint32_t speed, bool hardware_flow) const {
  const std::string rate = bytes({static_cast<uint8_t>(speed >> 24), static_cast<uint8_t>(speed >> 16),
                                  static_cast<uint8_t>(speed >> 8), static_cast<uint8_t>(speed)});
  return com_port(set_baudrate, rate) + com_port(set_datasize, bytes({8})) +
         com_port(set_parity, bytes({parity_none})) + com_port(set_stopsize, bytes({stop_one})) +
         com_port(set_control, bytes({hardware_flow ? control_hardware_flow : control_no_flow}));
}

std::string telnet_port::encode(std::string_view data) {
  std::string text;
  text.reserve(data.size());
  for (const char c : data) {
    text.push_back(c);
    if (static_cast<uint8_t>(c) == iac) {
      text.push_back(c);
    }
  }
  return text;
}

std::string telnet_port::decode(std::string_view received, std::string& answer) {
  std::string data;
  for (const char c : received) {
    const auto byte = static_cast<uint8_t>(c);
    switch (state_) {
      case states::data:
        if (byte == iac) {
          state_ = states::command;
        } else {
          data.push_back(c);
        }
        break;
      case states::command:
        if (byte == iac) {
          data.push_back(c);
          state_ = states::data;
        } else if (byte >= verb_will) {
          verb_ = byte;
          state_ = states::option;
        } else if (byte == sb) {
          subnegotiation_.clear();
          state_ = states::subnegotiation;
        } else {
          state_ = states::data;
        }
        break;
      case states::option:
        take_option(verb_, byte, answer);
        state_ = states::data;
        break;
      case states::subnegotiation:
        if (byte == iac) {
          state_ = states::subnegotiation_command;
        } else if (subnegotiation_.size() < longest_subnegotiation) {
          subnegotiation_.push_back(c);
        }
        break;
      case states::subnegotiation_command:
        if (byte == se) {
          take_subnegotiation();
          state_ = states::data;
        } else {
          if (subnegotiation_.size() < longest_subnegotiation) {
            subnegotiation_.push_back(c);
          }
          state_ = states::subnegotiation;
        }
        break;
    }
  }
  return data;
}

// Our offers went out with the greeting; an answer to them is not answered again, or two sides would never
// stop agreeing.
void telnet_port::take_option(uint8_t verb, uint8_t option, std::string& answer) {
  if (option == option_com_port) {
    agreed_ = agreed_ || verb == verb_do;
    refused_ = refused_ || verb == verb_dont;
  }
  const bool about_us = verb == verb_do || verb == verb_dont;
  const bool wanted = verb == verb_do || verb == verb_will;
  const bool in_greeting = is_ours(option) && (about_us || option != option_com_port);
  if (!wanted || in_greeting) {
    return;
  }
  answer += bytes({iac, about_us ? verb_wont : verb_dont, option});
}

void telnet_port::take_subnegotiation() {
  if (subnegotiation_.size() < 2 || static_cast<uint8_t>(subnegotiation_[0]) != option_com_port) {
    return;
  }
  const auto command = static_cast<uint8_t>(subnegotiation_[1]);
  if (command == set_baudrate + answer_offset && subnegotiation_.size() >= 6) {
    speed_ = 0;
    for (size_t i = 2; i < 6; ++i) {
      speed_ = speed_ << 8 | static_cast<uint8_t>(subnegotiation_[i]);
    }
  } else if (command == set_control + answer_offset) {
    settled_ = true;
  } else if (command == flow_suspend + answer_offset || command == flow_suspend) {
    suspended_ = true;
  } else if (command == flow_resume + answer_offset || command == flow_resume) {
    suspended_ = false;
  }
}
