#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace qva {

// How the control server of a playing composition listens and whom it answers.
struct ControlSettings {
  // Loopback unless the operator exposes the server on purpose.
  std::string bindAddress = "127.0.0.1";
  // 0 picks a free port (ControlServer::port() says which).
  int port = 0;
  // When not empty, every request must carry it as "Authorization: Bearer TOKEN" or in the page's cookie.
  std::string token;
  // The folders compositions may be loaded from; none turns loading off.
  std::vector<std::filesystem::path> loadFolders;
  // The control page's static files; empty serves no page.
  std::filesystem::path pageFolder;
  // Larger request bodies are refused before they are read.
  std::size_t maximumBodyBytes = 64 * 1024;
};

}  // namespace qva
