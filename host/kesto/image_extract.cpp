// kesto image extract: the parts of an image as files, and the description that they are built from again.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kesto/description.h"
#include "kesto/image_file.h"
#include "kesto/image_output.h"
#include "kesto/part.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"
#include "kesto/unfinished.h"

namespace {

constexpr const char* description_name = "image.toml";

// The directory that is being filled. It has another name until it is complete.
class extraction {
 public:
  explicit extraction(std::string directory) : directory_(std::move(directory)) {
    while (directory_.size() > 1 && directory_.ends_with('/')) {
      directory_.pop_back();
    }
  }

  // Result: false after an error. All others alike.
  bool create() {
    const std::string path = directory_ + ".kesto-" + std::to_string(getpid());
    const signals_held_back hold;
    if (mkdir(path.c_str(), 0777) != 0) {
      return failed("create");
    }
    temporary_ = std::make_unique<unfinished_path>(path);
    return true;
  }

  bool extract_part(const image_file& image, image_part& part) {
    if (part.number >= description_most_parts) {
      return image.fault(part, "more than %zu parts", description_most_parts);
    }
    if (!image.take_header(part) || !image.holds_contents(part) || !image.check_flag(part)) {
      return false;
    }
    part_order order = part_order_of_header(part.header, part.get(image_field_next_header_flag) != 0);
    order.is_empty = part.length() == 0;
    const char* name = part_short_name(order.type);
    order.path = std::to_string(part.number) + "-" + (name != nullptr ? name : part_type_name(order.type));
    uint32_t checksum = UINT32_MAX;
    if (!order.is_empty && !copy_contents(image, part, order.path, &checksum)) {
      return false;
    }
    parts_.push_back(std::move(order));
    return image.check_sum(part, checksum);
  }

  bool finish() {
    const std::string text = description_text(parts_);
    if (!write_file(description_name, [&text](image_output& output) {
          return output.append(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        })) {
      return false;
    }
    // An empty directory is replaced, anything else is not.
    if (rename(temporary_->path().c_str(), directory_.c_str()) != 0) {
      return failed("rename");
    }
    for (const auto& file : files_) {
      file->finish();
    }
    temporary_->finish();
    return true;
  }

 private:
  bool failed(const char* what) const {
    report_error("%s: %s error (%s)", directory_.c_str(), what, strerror(errno));
    return false;
  }

  bool copy_contents(const image_file& image, const image_part& part, const std::string& name,
                     uint32_t* checksum) {
    return write_file(name, [&](image_output& output) {
      return image.read_contents(
          part, [&output](const file_piece& piece) { return output.append(piece.data, piece.size); },
          checksum);
    });
  }

  bool write_file(const std::string& name, const std::function<bool(image_output&)>& write) {
    const std::string path = temporary_->path() + "/" + name;
    image_output output;
    if (!output.choose(path.c_str()) || !output.create() || !write(output)) {
      return false;
    }
    const signals_held_back hold;
    if (!output.finish()) {
      return false;
    }
    files_.push_back(std::make_unique<unfinished_path>(path));
    return true;
  }

  std::string directory_;
  std::unique_ptr<unfinished_path> temporary_;
  std::vector<std::unique_ptr<unfinished_path>> files_;  // gone before the directory is
  std::vector<part_order> parts_;
};

// Result: true when the directory may come into being, else false after an error.
bool may_create(const std::string& directory) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::symlink_status(directory, error);
  if (!std::filesystem::exists(status) ||
      (std::filesystem::is_directory(status) && std::filesystem::is_empty(directory, error))) {
    return true;
  }
  report_error("%s: is there already", directory.c_str());
  return false;
}

struct options {
  std::string image;
  std::string directory;
};

int run_image_extract(const options& options) {
  image_file image;
  if (!image.open(options.image.c_str()) || !may_create(options.directory)) {
    return exit_failed;
  }
  extraction extraction(options.directory);
  if (!extraction.create()) {
    return exit_failed;
  }
  const unsigned parts = image.visit_parts([&extraction](const image_file& file, image_part& part) {
    return extraction.extract_part(file, part);
  });
  if (parts == 0 || !extraction.finish()) {
    return exit_failed;
  }
  printf("%s: %u %s and %s\n", options.directory.c_str(), parts, parts == 1 ? "part" : "parts",
         description_name);
  return exit_success;
}

std::function<int()> declare_image_extract(CLI::App& line) {
  const auto given = std::make_shared<options>();
  line.add_option("IMAGE", given->image)->required();
  line.add_option("-d,--directory", given->directory,
                  "where the files go; it is made, and may only be there if it is empty")
      ->type_name("DIR")
      ->group("Output")
      ->required()
      ->take_last();
  return [given] { return run_image_extract(*given); };
}

}  // namespace

const subcommand image_extract = {
    .name = "image extract",
    .arguments = "IMAGE -d DIR",
    .purpose = "Take an image apart",
    .text =
        "Writes the contents of every part into a file of its own and describes them in image.toml, from which\n"
        "'kesto image build' makes the same image again, byte for byte. The image is checked on the way, but for\n"
        "whether a device has a place for each part. If anything is wrong with it, there is no directory.\n",
    .declare = declare_image_extract,
};
