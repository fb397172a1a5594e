#pragma once
// The Qel exception family: one class per failure, each with a fixed text.

#include <stdexcept>

namespace Qel {

struct bug_check : std::runtime_error {
    bug_check() : std::runtime_error("bug check") {}
};
struct invalid_input : std::runtime_error {
    invalid_input() : std::runtime_error("invalid input") {}
};
struct user_abort : std::runtime_error {
    user_abort() : std::runtime_error("user abort") {}
};
struct network_error : std::runtime_error {
protected:
    explicit network_error(const char* text) : std::runtime_error(text) {}
};
struct network_error_timeout : network_error {
    network_error_timeout() : network_error("network timeout") {}
};
struct file_access_error : std::runtime_error {
    file_access_error() : std::runtime_error("file access error") {}
protected:
    explicit file_access_error(const char* text) : std::runtime_error(text) {}
};
struct file_not_found : file_access_error {
    file_not_found() : file_access_error("file not found") {}
};
struct file_already_exists : file_access_error {
    file_already_exists() : file_access_error("file already exists") {}
};
struct directory_not_empty : file_access_error {
    directory_not_empty() : file_access_error("directory not empty") {}
};

}  // namespace Qel
