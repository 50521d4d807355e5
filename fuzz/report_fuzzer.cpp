// A coded report, policy or message of any bytes, and all that is asked of one. SPEDITOR_LIB_PATH
// names a directory with a libs.znp.
#include "channel.h"
#include "codec.h"
#include "decode_channel.h"
#include "encode_channel.h"
#include "formatter.h"
#include "message.h"
#include "report.h"
#include "report_filter.h"
#include "ustring_writer.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

void ask(km::codable& object, km::ustring_writer& to) {
    km::filter all(1);
    km::formatter form;
    if (auto* one = dynamic_cast<km::report*>(&object)) {
        one->to_text(all, to, form);
        one->do_log();
        one->remove(all, to, form);
    } else if (auto* policy = dynamic_cast<km::NotificationPolicy*>(&object)) {
        policy->to_text(all, to, form);
        policy->execute();
        policy->is_disposable();
    } else if (auto* message = dynamic_cast<km::Message*>(&object)) {
        message->to_text(all, to, form);
        message->is_disposable();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    km::array_input_channel bytes(data, static_cast<int>(size));
    bytes.inhibit(1);
    km::decode_channel channel(&bytes);
    km::decoder in(&channel);
    km::codable* object = nullptr;
    in.decode_object(object);
    const std::unique_ptr<km::codable> owned(object);
    if (!object || in.get_status())
        return 0;
    km::array_output_channel written(256);
    km::ustring_writer to(&written);
    ask(*object, to);
    const std::unique_ptr<km::codable> copy(object->clone());
    km::encode_channel again(&written);
    km::encoder(&again).encode_object(copy ? copy.get() : object);
    return 0;
}
