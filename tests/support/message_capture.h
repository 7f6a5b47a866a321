#pragma once

// Collects the messages of the command engine while it lives, instead of
// printing them. Render threads report too, so the list is guarded.

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/messages.h"

namespace orvo_test {

class MessageCapture {
public:
    using Severity = TcommandEngine::Severity;
    using Message = std::pair<Severity, std::string>;

    MessageCapture() {
        fPrevious = TcommandEngine::setSink([this](Severity s, const std::string& text) {
            std::lock_guard lock(fMutex);
            fMessages.emplace_back(s, text);
        });
    }
    ~MessageCapture() { TcommandEngine::setSink(fPrevious); }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    std::vector<Message> messages() const {
        std::lock_guard lock(fMutex);
        return fMessages;
    }
    size_t count(Severity s) const {
        std::lock_guard lock(fMutex);
        size_t n = 0;
        for (const Message& m : fMessages)
            n += m.first == s;
        return n;
    }
    bool contains(const std::string& part) const {
        std::lock_guard lock(fMutex);
        for (const Message& m : fMessages)
            if (m.second.find(part) != std::string::npos)
                return true;
        return false;
    }
    // Everything, in order: console texts as they stand (they carry their
    // own line ends), other messages one to a line.
    std::string text() const {
        std::lock_guard lock(fMutex);
        std::string all;
        for (const Message& m : fMessages)
            all += m.first == Severity::Console ? m.second : m.second + "\n";
        return all;
    }
    void clear() {
        std::lock_guard lock(fMutex);
        fMessages.clear();
    }

private:
    TcommandEngine::Sink fPrevious;
    mutable std::mutex fMutex;
    std::vector<Message> fMessages;
};

} // namespace orvo_test
