// Any reply body: splitting it by the envelope never throws; a body that is
// not a JSON object is a failure that names the API.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/HTTPTransport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace veltrane;
    std::string_view body(reinterpret_cast<const char*>(data), size);
    static const Envelope standard;
    static const Envelope custom{"code", "msg", "result", [](const Value* code) { return code && code->intValue() == 0; }};
    bool object = false;
    try {
        object = parseJSON(body).isDictionary();
    } catch (const JSONError&) {
    }
    for (const Envelope* envelope : {&standard, &custom}) {
        GatewayReply reply = splitEnvelope("fuzz", body, *envelope);
        if (!object && (reply.success || !reply.message || reply.message->rfind("fuzz: reply is", 0) != 0)) std::abort();
    }
    return 0;
}
