// mrt_exception: the only exception type, thrown by the runtime alone
#pragma once

#include <exception>
#include <string>
#include <vector>

namespace km {

// What a runtime service throws: a message of a catalogue, kept as plain text so that the layers
// below the messages can throw it. `what()` is the default text, unbound.
class mrt_exception : public std::exception {
  public:
    mrt_exception(std::string catalog, long key, std::string text,
                  std::vector<std::string> arguments = {})
        : catalog_(std::move(catalog)), key_(key), text_(std::move(text)),
          arguments_(std::move(arguments)) {}

    const char* what() const noexcept override { return text_.c_str(); }
    const std::string& catalog() const { return catalog_; }
    long key() const { return key_; }
    const std::string& text() const { return text_; }
    const std::vector<std::string>& arguments() const { return arguments_; }

  private:
    std::string catalog_;
    long key_;
    std::string text_;
    std::vector<std::string> arguments_;
};

} // namespace km
