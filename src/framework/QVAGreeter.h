#pragma once

#include <functional>
#include <optional>
#include <string>

namespace qva {

// The one-time greeting shown when a patch is first created inside the editor host. Whether it may be
// shown is decided once per greeter from the process name and the suppress file in the home folder.
class QVAGreeter {
 public:
  static constexpr const char* kEditorProcessName = "Composition Editor";
  static constexpr const char* kSuppressFileName = ".qva_suppress_thanks";
  static constexpr const char* kMessage = "Thanks for using Velmora products!";
  static constexpr const char* kDefaultButton = "OK";
  static constexpr const char* kWebsiteButton = "Velmora Website";
  // The alert's answer for its second button.
  static constexpr int kSecondButtonReturn = 1001;

  struct Environment {
    std::string processName;
    std::optional<std::string> homeFolder;
  };
  // Shows the alert and answers the button chosen (1000 first, 1001 second).
  using AlertPresenter = std::function<int(const std::string& message, const std::string& firstButton,
                                           const std::string& secondButton)>;
  using WebsiteOpener = std::function<void(const std::string& address)>;

  QVAGreeter(const Environment& environment, AlertPresenter presenter, WebsiteOpener opener);

  // The greeter of this process: decided from the running process and $HOME, showing nothing where no
  // desktop alert facility exists.
  static QVAGreeter& shared();
  // True when the process is the editor and no suppress file exists in the home folder.
  static bool decideShowThanks(const Environment& environment);
  static Environment currentEnvironment();

  // Shows the greeting if allowed and not yet shown.
  void showThanks();
  bool showThanksAllowed() const { return showThanks_; }
  bool timesThanked() const { return timesThanked_; }

 private:
  bool showThanks_;
  bool timesThanked_ = false;
  AlertPresenter presenter_;
  WebsiteOpener opener_;
};

}  // namespace qva
