#pragma once

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace qva {

// A subtitle script the benchmark writes into the temporary folder and removes when it ends.
class GeneratedScript {
 public:
  GeneratedScript(const std::string& name, const std::function<void(std::ostream&)>& write)
      : path_((std::filesystem::temp_directory_path() / (name + "-" + std::to_string(getpid()))).string()) {
    std::ofstream out(path_, std::ios::binary);
    write(out);
  }
  ~GeneratedScript() { std::filesystem::remove(path_); }
  GeneratedScript(const GeneratedScript&) = delete;
  GeneratedScript& operator=(const GeneratedScript&) = delete;

  const std::string& path() const { return path_; }

  // A time in milliseconds as scripts write it, "H:MM:SS.CC".
  static std::string clock(long long ms) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld.%02lld", ms / 3600000, ms / 60000 % 60,
                  ms / 1000 % 60, ms / 10 % 100);
    return text;
  }

 private:
  std::string path_;
};

}  // namespace qva
