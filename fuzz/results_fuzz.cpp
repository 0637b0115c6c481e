// DNS-SD results as a daemon reports them, with texts of any bytes, TXT records of any length and
// any address family: through the result callbacks to a listener that checks the line against what
// was reported, and to this device's own discovery.
#include <fuzzer/FuzzedDataProvider.h>
#include <netinet/in.h>
#include <resolv.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FakeDnsSd.h"
#include "FuzzDevice.h"
#include "MDnsSdChannel.h"
#include "WFDmDns.h"

namespace {

constexpr int kRequestId = 7;

template <size_t Size>
bool ended(const char (&text)[Size]) {
    return memchr(text, '\0', Size) != nullptr;
}

void onService(int result, const MDnsWfdServiceInfo* info) {
    require((result == 0) == (info != nullptr));
    if (info == nullptr) return;
    require(ended(info->serviceName) && ended(info->regType) && ended(info->ipAddress) &&
            ended(info->domain));
}

// Keeps the line and looks at the parts.
class CheckingListener : public MDnsResultListener {
 public:
    std::string line;

    int sendMsg(int, const char*, bool) override { abort(); }
    int sendBroadcast(int code, const char* message, bool /*flag*/) override {
        require(code >= kMDnsDiscoverFailed && code <= kMDnsAddressFound && message != nullptr);
        line = message;
        require(atoi(message) == kRequestId);
        return 0;
    }
    void onDiscoverResult(int, const char*, const char*, const char*) override {}
    void onRegisterResult(int, const char*, const char*, const char*) override {}
    void onResolveResult(int code, const char*, const char*, int, int txtLen,
                         const unsigned char* txtRecord) override {
        if (code != 0) return;
        // What the line ends with is the record.
        const size_t begin = line.rfind('"', line.size() - 2) + 1;
        const std::string base64 = line.substr(begin, line.size() - 1 - begin);
        std::vector<unsigned char> bytes(static_cast<size_t>(txtLen) + 3);
        require(b64_pton(base64.c_str(), bytes.data(), bytes.size()) == txtLen);
        require(txtLen == 0 || memcmp(bytes.data(), txtRecord, static_cast<size_t>(txtLen)) == 0);
    }
    void onGetAddrResult(int, const char*, const char*) override {}
};

WFDmDns& discovery() {
    static WFDmDns* const object = [] {
        FakeDnsSd::instance().setJournalled(false);
        auto* const made = new WFDmDns;
        made->registerSource("", 7236, onService);
        made->discover(WFD_R2_PRIMARY_SINK, onService);
        return made;
    }();
    return *object;
}

// In memory of exactly the size of its family.
std::vector<unsigned char> socketAddress(FuzzedDataProvider& input) {
    constexpr sa_family_t kFamilies[] = {AF_INET, AF_INET6, AF_UNSPEC, AF_UNIX, 255};
    const sa_family_t family = input.PickValueInArray(kFamilies);
    std::vector<unsigned char> address(family == AF_INET6 ? sizeof(sockaddr_in6)
                                                          : sizeof(sockaddr_in));
    input.ConsumeData(address.data(), address.size());
    memcpy(address.data() + offsetof(sockaddr, sa_family), &family, sizeof family);
    return address;
}

void reportOne(FuzzedDataProvider& input) {
    static CheckingListener checking;
    const bool checked = input.ConsumeBool();
    MDnsResultListener* const listener =
        checked ? static_cast<MDnsResultListener*>(&checking) : &discovery();
    MDnsSdChannel::Context context(listener, nullptr, kRequestId);
    const auto kind = input.ConsumeIntegralInRange<int>(0, 4);
    const DNSServiceErrorType error =
        input.ConsumeIntegralInRange<int>(0, 7) == 7 ? input.ConsumeIntegral<int32_t>() : 0;
    const auto flags = input.ConsumeIntegral<uint8_t>();
    const std::vector<char> name = exactText(input.ConsumeRandomLengthString(1100));
    const std::vector<char> second = exactText(input.ConsumeRandomLengthString(300));
    const std::vector<char> third = exactText(input.ConsumeRandomLengthString(300));
    switch (kind) {
        case 0:
            MDnsSdListenerDiscoverCallback(nullptr, flags, 0, error, name.data(), second.data(),
                                           third.data(), &context);
            break;
        case 1:
            MDnsSdListenerRegisterCallback(nullptr, flags, error, name.data(), second.data(),
                                           third.data(), &context);
            break;
        case 2: {
            if (!checked) discovery().resolve({}, onService);
            const auto txt = input.ConsumeBytes<unsigned char>(input.ConsumeIntegral<uint16_t>());
            MDnsSdListenerResolveCallback(nullptr, flags, 0, error, name.data(), second.data(),
                                          input.ConsumeIntegral<uint16_t>(),
                                          static_cast<uint16_t>(txt.size()), txt.data(), &context);
            break;
        }
        case 3: {
            const std::vector<unsigned char> address = socketAddress(input);
            MDnsSdListenerGetAddrInfoCallback(nullptr, flags, 0, error, name.data(),
                                              reinterpret_cast<const sockaddr*>(address.data()),
                                              input.ConsumeIntegral<uint32_t>(), &context);
            break;
        }
        default:
            MDnsSdListenerSetHostnameCallback(nullptr, flags, error, name.data(), &context);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    while (input.remaining_bytes() > 0) reportOne(input);
    require(FakeDnsSd::instance().takeViolations().empty());
    return 0;
}
