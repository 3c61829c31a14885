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

void error(const std::string& text)
{
    MessageBoxRequest r;
    r.caption = errorCaption();
    r.text = text;
    r.button0 = "O.K.";
    r.icon = kIconWarning;
    ask(r);
}

void warning(const std::string& text)
{
    MessageBoxRequest r;
    r.caption = warningCaption();
    r.text = text;
    r.button0 = "O.K.";
    r.icon = kIconWarning;
    ask(r);
}

void information(const std::string& text)
{
    MessageBoxRequest r;
    r.caption = product::shortName();
    r.text = text;
    r.button0 = "OK";
    r.icon = kIconInformation;
    ask(r);
}

}  // namespace report
