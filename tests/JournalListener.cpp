#include "JournalListener.h"

#include <cstdlib>

#include "Journal.h"
#include "TextFormat.h"

using hostplatform::format;
using hostplatform::Journal;

namespace {

const char* textOr(const char* text) { return text == nullptr ? "(null)" : text; }

void note(const std::string& call) { Journal::instance().add("listener", call); }

}  // namespace

void JournalListener::onResult(int requestId, Form form, std::function<void()> action) {
    const std::lock_guard lock(mMutex);
    mActions[{requestId, form}] = std::move(action);
}

void JournalListener::act(Form form) {
    std::function<void()> action;
    {
        const std::lock_guard lock(mMutex);
        const auto found = mActions.find({mReporting, form});
        if (found != mActions.end()) action = found->second;
    }
    if (action) action();
}

int JournalListener::sendMsg(int code, const char* message, bool flag) {
    note(format("sendMsg(%d, %s, %d)", code, textOr(message), flag));
    return -1;  // the channel does not look at it
}

int JournalListener::sendBroadcast(int code, const char* message, bool flag) {
    note(format("sendBroadcast(%d, %s, %d)", code, textOr(message), flag));
    mReporting = message == nullptr ? 0 : atoi(message);
    act(Form::Line);
    return -1;
}

void JournalListener::onDiscoverResult(int code, const char* serviceName, const char* regType,
                                       const char* domain) {
    note(format("onDiscoverResult(%d, %s, %s, %s)", code, textOr(serviceName), textOr(regType),
                textOr(domain)));
    act(Form::Parts);
}

void JournalListener::onRegisterResult(int code, const char* serviceName, const char* regType,
                                       const char* domain) {
    note(format("onRegisterResult(%d, %s, %s, %s)", code, textOr(serviceName), textOr(regType),
                textOr(domain)));
    act(Form::Parts);
}

void JournalListener::onResolveResult(int code, const char* fullName, const char* hostTarget,
                                      int port, int txtLen, const unsigned char* txtRecord) {
    std::string bytes;
    for (int i = 0; i < txtLen; ++i) bytes += format("%02x", txtRecord[i]);
    note(format("onResolveResult(%d, %s, %s, %d, %d, %s)", code, textOr(fullName),
                textOr(hostTarget), port, txtLen, txtRecord == nullptr ? "(null)" : bytes.c_str()));
    act(Form::Parts);
}

void JournalListener::onGetAddrResult(int code, const char* hostname, const char* address) {
    note(format("onGetAddrResult(%d, %s, %s)", code, textOr(hostname), textOr(address)));
    act(Form::Parts);
}

int give(MDnsSdChannel& channel, const std::vector<std::string>& words) {
    std::vector<std::string> copies{"1"};
    copies.insert(copies.end(), words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& word : copies) arguments.push_back(word.data());
    return channel.runCommand(static_cast<int>(arguments.size()), arguments.data());
}
