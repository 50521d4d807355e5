// report_text: a report as a line of JSON, or after a template
// format: docs/formats/report-json.md
// invariant: one report is one line of JSON, whatever bytes its fields have
#include "log_protocol.h"
#include "json_text.h"
#include "report_channels.h"
#include "report_words.h"
#include "status_words.h"
#include "ustring_writer.h"

#include "channel.h"

#include <nlohmann/json.hpp>

namespace kmhost {

namespace {

// What a template writes from.
class written_report : public km::uncoded<km::log_protocol> {
  public:
    explicit written_report(const report_fields& from) {
        const auto text = [](const std::string& field) { return km::ustring(field.c_str()); };
        km::log_protocol::initialize(
            from.operation_type, from.operation_mode, text(from.endpoint_name),
            text(from.endpoint_id), text(from.endpoint_guid), text(from.spo_oid),
            text(from.base_name), text(from.base_version), text(from.base_oid),
            text(from.origin_user), text(from.exec_time), text(from.user_name), text(from.message),
            text(from.exit_codes_msg), km::dbstatus_to_long(from.state.c_str()),
            text(from.distribution_id), text(from.name), text(from.version), text(from.spname),
            km::pathname(from.pathname.c_str()), from.exception, from.primary, nullptr);
    }
    void initialize(long, long, const km::ustring&, const km::ustring&, const km::ustring&,
                    const km::ustring&, const km::ustring&, const km::ustring&, const km::ustring&,
                    const km::ustring&, const km::ustring&, const km::ustring&, const km::ustring&,
                    const km::ustring&, long, const km::ustring&, const km::ustring&,
                    const km::ustring&, const km::ustring&, const km::pathname&, int, int,
                    km::codable*) override {}
};

} // namespace

std::string report_json(const report_fields& report) {
    const nlohmann::ordered_json object = {
        {"schema", 1},
        {"id", report.key},
        {"time", report.exec_time},
        {"operation", report.operation},
        {"mode", report.mode},
        {"name", report.name},
        {"version", report.version},
        {"state", report.state},
        {"result", report.exit_codes_msg},
        {"message", report.message},
        {"exception", report.exception},
        {"primary", report.primary},
        {"distribution_id", report.distribution_id},
        {"endpoint_name", report.endpoint_name},
        {"endpoint_id", report.endpoint_id},
        {"endpoint_guid", report.endpoint_guid},
        {"spname", report.spname},
        {"spo_oid", report.spo_oid},
        {"base_name", report.base_name},
        {"base_version", report.base_version},
        {"base_oid", report.base_oid},
        {"origin_user", report.origin_user},
        {"user_name", report.user_name},
        {"operation_type", report.operation_type},
        {"operation_mode", report.operation_mode},
        {"pathname", report.pathname},
    };
    return json_text(object);
}

std::string report_text(const report_fields& report, const std::string& form,
                        const std::string& listeners) {
    constexpr int first_room = 256;
    km::array_output_channel bytes(first_room);
    km::ustring_writer writer(&bytes);
    report_formatter(form.c_str())
        .write_formatted(writer, written_report(report), km::ustring("standard"),
                         km::ustring(listeners.c_str()));
    return {reinterpret_cast<const char*>(bytes.get_data()),
            static_cast<size_t>(bytes.get_count())};
}

} // namespace kmhost
