// User-facing messages of the non-widget layers. Every failure is shown once,
// by the function that detects it, through the bridge that is installed here
// (the main window, the headless front end, or a test).
#pragma once

#include "base/Bridge.h"
#include "base/Product.h"

#include <string>

namespace report {

// Installs the bridge that shows messages; nullptr drops them.
void setBridge(Bridge* bridge);
Bridge* bridge();

// The product's caption: "<short name> Error" / "<short name> Warning".
std::string errorCaption();
std::string warningCaption();

// A message and, on a second line, why it happened, when that is known
// (the reader's error, the system's error text, the paths searched, the
// probe library's own reason). The reason also goes to the log.
std::string withReason(const std::string& message, const std::string& reason);

// Error box: caption "... Error", button "O.K.", warning icon, no time-out.
void error(const std::string& text);
// Warning box: caption "... Warning", button "O.K.", warning icon.
void warning(const std::string& text);
// Information box with one "OK" button.
void information(const std::string& text);
// Any box; without a bridge the dismissed value comes back.
MessageBoxAnswer ask(const MessageBoxRequest& request);

}  // namespace report
