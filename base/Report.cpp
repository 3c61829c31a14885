#include "base/Report.h"

#include "base/Log.h"

#include <atomic>

namespace report {
namespace {
std::atomic<Bridge*> g_bridge{nullptr};
}

void setBridge(Bridge* b) { g_bridge = b; }
Bridge* bridge() { return g_bridge; }

std::string errorCaption() { return product::shortName() + " Error"; }
std::string warningCaption() { return product::shortName() + " Warning"; }

MessageBoxAnswer ask(const MessageBoxRequest& request)
{
    Bridge* b = g_bridge;
    if (!b)
        return {request.dismissedValue, request.checkState};
    return b->messageBox(request);
}

std::string withReason(const std::string& message, const std::string& reason)
{
    if (reason.empty())
        return message;
    Log::instance().text(message + " Reason: " + reason);
    return message + "\n" + reason;
}

namespace {
// A message with one button; what the user answers does not matter.
void notice(const std::string& caption, const std::string& text, const char* button, int icon)
{
    MessageBoxRequest r;
    r.caption = caption;
    r.text = text;
    r.button0 = button;
    r.icon = icon;
    ask(r);
}
}  // namespace

void error(const std::string& text) { notice(errorCaption(), text, "O.K.", kIconWarning); }
void warning(const std::string& text) { notice(warningCaption(), text, "O.K.", kIconWarning); }
void information(const std::string& text) { notice(product::shortName(), text, "OK", kIconInformation); }

}  // namespace report
