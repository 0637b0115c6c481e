#include "SoakCommands.h"

#include <pthread.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "SoakAccount.h"
#include "TextFormat.h"
#include "miracast_sigma.h"

namespace {

constexpr const char* kDirectPeer = "192.168.49.2";
// Of discovery objects. Each leaves a thread behind, and many a second one; ThreadSanitizer has
// room for some 8,000.
constexpr int kMostObjects = 1300;
constexpr int kObjectsAtFirst = 60;

char untouched = 0;  // where a response is to be stored, before it is

bool isIdentifier(const char* text) {
    const char* const digits = *text == '-' ? text + 1 : text;
    const size_t length = strspn(digits, "0123456789");
    return length >= 8 && digits[length] == '\0';
}

constexpr const char* kResetTexts[] = {"", "Program,WFD", "Program,DisplayR2", "displayr2"};
constexpr const char* kRenegotiation =
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,"
    "CapReNegotiateCodecProfile,H264-1";
constexpr const char* kFrameTexts[] = {
    kRenegotiation,
    "framename,RTSP,RtspMsgType,PAUSE",
    "framename,RTSP,RtspMsgType,PLAY",
    "framename,RTSP,RtspMsgType,TEARDOWN",
    "framename,RTSP,RtspMsgType,TRIGGER-PAUSE",
    "framename,RTSP,RtspMsgType,TRIGGER-PLAY",
    "framename,RTSP,RtspMsgType,TRIGGER-TEARDOWN",
    "framename,RTSP,RtspMsgType,SETUP",
    "framename,RTSP,RtspMsgType,OPTIONS",
    "framename,RTSP,RtspMsgType,SET_PARAMETER",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,Standby",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,LPCM",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,H265-9",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,TransportType,tcp",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,TransportType,tcp",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,TransportType,udp",
    "framename,P2P,source,a,destination,b",
};
constexpr const char* kPresetTexts[] = {
    "mdns_disc,disable",
    "mdns_disc,enable,mdns_role,browser,wfddevtype,source",
    "mdns_disc,enable,mdns_role,browser,wfddevtype,p-sink",
    "mdns_disc,enable,mdns_role,responder,wfddevtype,source",
    "mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink",
};
constexpr const char* kActionTexts[] = {
    "DirectStreaming,Start,CodecProfile,H264-0",
    "DirectStreaming,Start,CodecProfile,H264-1",
    "DirectStreaming,Stop",
};
constexpr const char* kBadActionTexts[] = {"", "DirectStreaming,Start",
                                           "DirectStreaming,Start,CodecProfile,H266",
                                           "DirectStreaming,Pause"};
constexpr const char* kEventTexts[] = {
    "Type,IdrReq",
    "Type,IdrReq",
    "Type,UIBC_Gen,UIBCEventType,Mouse",
    "Type,UIBC_Gen,UIBCEventType,KeyBoard",
    "Type,UIBC_HID,UIBCEventType,KEYBOARD",
    "Type,Nothing",
};

}  // namespace

void require(bool condition, const char* pattern, ...) {
    if (condition) return;
    va_list arguments;
    va_start(arguments, pattern);
    const Violation violation(hostplatform::formatArguments(pattern, arguments));
    va_end(arguments);
    throw violation;
}

SoakCommands::SoakCommands(uint64_t seed, SoakFaults& faults, SoakAccount& account)
    : mRandom(seed), mFaults(faults), mAccount(account) {}

bool SoakCommands::mayDiscover() const {
    return static_cast<double>(mAccount.count(Event::MonitorStarted)) <
           kObjectsAtFirst + kMostObjects * mProgress;
}

// Sometimes a text as no controller should send it.
std::string SoakCommands::mutated(std::string text) {
    if (!mRandom.oneIn(10)) return text;
    const auto place = static_cast<size_t>(mRandom.below(static_cast<int>(text.size()) + 1));
    switch (mRandom.below(4)) {
        case 0:
            return text.substr(0, place);
        case 1:
            return text.insert(place, static_cast<size_t>(mRandom.below(700)), 'x');
        case 2:
            return text.insert(place, 1, static_cast<char>(1 + mRandom.below(255)));
        default:
            return text.insert(place, ",,");
    }
}

void SoakCommands::giveText(const std::string& text, int (*function)(const char*),
                            std::initializer_list<int> results) {
    const int result = function(mRandom.oneIn(200) ? nullptr : text.c_str());
    const bool known = std::find(results.begin(), results.end(), result) != results.end();
    require(known, "\"%s\" gives %d", text.c_str(), result);
}

void SoakCommands::reset() { giveText(mutated(mRandom.of(kResetTexts)), sta_reset_default, {0}); }

void SoakCommands::sendFrame() {
    giveText(mutated(mRandom.of(kFrameTexts)), dev_send_frame, {0, 1, 2, -1});
}

void SoakCommands::generateEvent() {
    giveText(mutated(mRandom.of(kEventTexts)), sta_generate_event, {0, 2});
}

void SoakCommands::execAction() {
    const bool good = mRandom.oneIn(3);  // two shell tools
    const std::string text = good ? mRandom.of(kActionTexts) : mRandom.of(kBadActionTexts);
    const int result = dev_exec_action(text.c_str());
    require(result == (good ? 1 : -2), "\"%s\" gives %d", text.c_str(), result);
    if (good) ++mCounts.shellCalls;
    if (const pthread_t thread = std::exchange(rtsp_playback_thread, 0); thread != 0) {
        require(pthread_join(thread, nullptr) == 0, "the playback thread cannot be joined");
        mCounts.shellCalls += 2;
    }
}

void SoakCommands::preset() {
    std::string text = mRandom.of(kPresetTexts);
    const bool responder = text.find("responder") != std::string::npos;
    mObject = responder && mayDiscover();
    if (responder && !mObject) text = kPresetTexts[0];
    text = mutated(std::move(text));
    const long allocated = mAccount.ofCommands(Event::Allocated);
    const bool wanted = !mRandom.oneIn(50);
    char* response = wanted ? &untouched : nullptr;
    const int result = sta_preset_testparameters(text.c_str(), wanted ? &response : nullptr);
    const bool answered = mAccount.ofCommands(Event::Allocated) > allocated;
    require(response != &untouched && (response != nullptr) == answered, "a preset's response");
    require(result == 0 || (result == -1 && response == nullptr), "\"%s\" gives %d", text.c_str(),
            result);
    if (response == nullptr) return;
    ++mCounts.responses;
    require(strlen(response) < sizeof instanceName, "the name \"%s\"", response);
    free(response);
}

// The sink that was found may be one of this device's own trigger servers.
void SoakCommands::noteTriggered() {
    char address[32];
    int port = 0;
    getmDNSPeerIPandPort(address, sizeof address, &port);
    mTriggered.insert(port);
}

void SoakCommands::start() {
    const bool discovers = mRandom.oneIn(12) && (mObject || mayDiscover());
    mObject = mObject || discovers;
    const int peerType = mRandom.below(2);
    const int port = discovers ? -100 : mRandom.oneIn(8) ? mRandom.below(70'000) - 1000 : 7236;
    const char* const address = mRandom.oneIn(30) ? nullptr : kDirectPeer;
    const long allocated = mAccount.ofCommands(Event::Allocated);
    mAccount.takeCreateStatus();
    const bool wanted = !mRandom.oneIn(50);
    char* response = wanted ? &untouched : nullptr;
    const bool go = !discovers && mRandom.oneIn(3);
    const int result = (go ? connect_go_start_wfd : start_wfd_connection)(
        "", address, port, peerType, wanted ? &response : nullptr);
    if (discovers && peerType == 1) noteTriggered();
    const std::optional<int> status = mAccount.takeCreateStatus();
    const bool memory = mAccount.ofCommands(Event::Allocated) > allocated;
    require(response != &untouched, "a start leaves its response as it was");
    require((result == -1) == (response == nullptr), "a start gives %d and the response %s", result,
            response == nullptr ? "null" : response);
    require(memory || result == -1, "a response without memory");
    if (response == nullptr) {
        if (memory) ++mCounts.takenBack;
        if (status.value_or(-1) == 0) ++mCounts.timedOut;
        return;
    }
    ++mCounts.responses;
    require(result == status, "a start gives %d, its session client %d", result,
            status.value_or(-99));
    if (result == 0) ++mCounts.sessions;
    require(isIdentifier(response), "the identifier \"%s\"", response);
    free(response);
}

void SoakCommands::give(double progress) {
    mProgress = progress;
    ++mCounts.commands;
    const int choice = mRandom.below(100);
    if (mRandom.oneIn(10)) mFaults.change();
    if (choice < 12) {
        reset();
    } else if (choice < 22) {
        preset();
    } else if (choice < 42) {
        start();
    } else if (choice < 87) {
        sendFrame();
    } else if (choice < 93) {
        execAction();
    } else {
        generateEvent();
    }
}

std::string SoakCommands::startBy(Start function, int port, int peerType) {
    char* response = nullptr;
    const int result = function("", kDirectPeer, port, peerType, &response);
    std::string text = response == nullptr ? "" : response;
    free(response);
    require(result == 0 && !text.empty(), "the start on port %d as %s gives %d", port,
            peerType == 0 ? "sink" : "source", result);
    ++mCounts.responses;
    ++mCounts.sessions;
    return text;
}

void SoakCommands::registerAs(const char* type, const std::string& name) {
    const bool ends = *type == '\0';
    const std::string text = hostplatform::format("mdns_disc,%s,mdns_role,responder,wfddevtype,%s",
                                                  ends ? "disable" : "enable", type);
    char* response = nullptr;
    const int result = sta_preset_testparameters(text.c_str(), &response);
    const std::string answer = response == nullptr ? "" : response;
    if (response != nullptr) ++mCounts.responses;
    free(response);
    mObject = !ends;
    require(result == 0 && answer == (ends ? "" : name),
            "a registration as \"%s\" gives %d, \"%s\"", type, result, answer.c_str());
}
