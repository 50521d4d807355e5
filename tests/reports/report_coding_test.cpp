// The coded forms of reports, their data, proxies, policies and messages.
#include "composite_message.h"
#include "report_kinds.h"
#include "report_list.h"

#include "reports/report_fixture.h"

#include "support/has.h"

#include <gtest/gtest.h>

using namespace km_test;
using km::pathname;
using km::ustring;

namespace {

// Every field another value.
void fill_all(km::report& one) {
    int n = 0;
    for (auto setter :
         {&km::report::set_distribution_id, &km::report::set_name, &km::report::set_version,
          &km::report::set_spname, &km::report::set_endpoint_guid, &km::report::set_endpoint_name,
          &km::report::set_endpoint_id, &km::report::set_spo_oid, &km::report::set_base_name,
          &km::report::set_base_version, &km::report::set_base_oid, &km::report::set_origin_user,
          &km::report::set_exec_time, &km::report::set_result, &km::report::set_message,
          &km::report::set_exit_codes_msg})
        (one.*setter)(u("text" + std::to_string(n++)));
    one.set_user_name(u("root"));
    one.further_text = u("further");
    one.set_operation_mode(-2);
    one.set_operation_type(7);
    one.set_state(0x4020004);
    one.set_status(0x1D);
    one.set_exception(1);
    one.set_primary(1);
    one.set_protocol(new km::proxy_dm_log_protocol);
}

template <class T> km::report* filled() {
    auto* one = new T;
    fill_all(*one);
    return one;
}

// One object of each class that travels.
std::vector<std::unique_ptr<km::codable>> all_kinds() {
    std::vector<std::unique_ptr<km::codable>> all;
    auto* inventory = new km::inventory_report;
    fill_all(*inventory);
    inventory->set_action_type(3);
    inventory->add_hardware_id("cpu");
    inventory->add_hardware_id(nullptr);
    const km::pair hello(u"hello", u"1.0");
    inventory->add_sp_name_version(&hello);
    inventory->add_operation("install");
    auto* vfan = new km::vfan2_db_report;
    vfan->add_target_by_oid(u"1.2");
    vfan->add_target_by_name(u"host");
    vfan->add_error(u"none");
    auto* device = new km::device_report;
    auto* targets = new km::device_data_holder;
    targets->failed_targets.push_back(new ustring(u"bad"));
    targets->good_targets.push_back(new ustring(u"good"));
    device->set_opt_params(targets);
    auto* path = new km::vfan2_report;
    path->set_data(pathname("/data/x"));
    auto* pointer = new km::bulk_report;
    pointer->set_bulk_pointer(1);
    pointer->set_data(pathname("/data/y"));
    auto* list = new km::report_list;
    list->add(inventory);
    list->add(device);
    auto* policies = new km::ZNPNotificationList;
    policies->add(new km::ZNPNotificationPolicy(filled<km::report>()), nullptr);
    policies->add(new km::ZNPNotificationPolicy(filled<km::dm_report>()), nullptr);
    auto* message = new km::ZNPMessage;
    message->init(filled<km::report>(), km::priority_c);
    auto* composite = new km::CompositeMessage;
    composite->add(new km::ZNPMessage(*message));
    for (km::codable* one : std::initializer_list<km::codable*>{
             filled<km::report>(), inventory, vfan, device, path, pointer, list, policies, message,
             composite, filled<km::dm_report>()})
        all.emplace_back(one);
    return all;
}

} // namespace

TEST(ReportCoding, EveryClassComesBackAsItWent) {
    home();
    for (const auto& one : all_kinds()) {
        const std::string bytes = encoded(*one);
        const auto back = decoded_as<km::codable>(bytes);
        ASSERT_TRUE(back) << one->codable_name();
        EXPECT_STREQ(back->codable_name(), one->codable_name());
        EXPECT_EQ(encoded(*back), bytes) << one->codable_name();
        const std::unique_ptr<km::codable> copy(one->clone());
        EXPECT_EQ(encoded(*copy), bytes) << one->codable_name();
    }
}

TEST(ReportCoding, FieldsStandInTheirOrderUnderTheirNumbers) {
    home();
    km::report one;
    fill_all(one);
    const std::string bytes = encoded(one);
    const unsigned char order[] = {100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 113,
                                   112, 114, 115, 116, 120, 117, 118, 119, 121, 122, 123, 124, 125};
    size_t at = bytes.find("CmReport");
    for (const unsigned char id : order) {
        at = bytes.find(std::string("\0", 1) + static_cast<char>(id), at);
        ASSERT_NE(at, std::string::npos) << int(id);
        at += 3;
    }
    // Long 106 is -2 as a sign-extended pair of words; object 112 is the proxy by its class alone.
    EXPECT_HAS(bytes, std::string("\0\x6A\5\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE", 11));
    EXPECT_HAS(bytes, std::string("CmProxyDMLogProtocol\0\0\0\1\0\0\4\0\0\0\1\xFF\xFF", 33));
    const auto back = decoded_as<km::report>(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(one.encoded * 100 + back->decoded * 10 + back->encoded, 110);
    EXPECT_EQ(back->get_protocol()->endpoint_name, back->endpoint_name);
    EXPECT_EQ(back->get_protocol()->operation_mode, -2);
}

TEST(ReportCoding, WhatIsCutOrOfAnotherClassIsRefused) {
    home();
    for (const auto& one : all_kinds()) {
        const std::string bytes = encoded(*one);
        for (size_t cut = 0; cut < bytes.size(); cut += 1 + bytes.size() / 97)
            EXPECT_FALSE(decoded_as<km::codable>(bytes.substr(0, cut)))
                << one->codable_name() << cut;
    }
    auto with_stranger = [](km::report* one) {
        one->set_opt_params(new ustring(u"no holder"));
        const std::unique_ptr<km::report> owned(one);
        return decoded_as<km::codable>(encoded(*owned)) != nullptr;
    };
    EXPECT_FALSE(with_stranger(new km::inventory_report));
    EXPECT_FALSE(with_stranger(new km::vfan2_db_report));
    EXPECT_TRUE(with_stranger(new km::report));
    // One class name for another of the same length, in the place of a protocol and of an element.
    km::report_list list;
    const std::unique_ptr<km::report> element(new_report("1"));
    list.add(element.get());
    for (const auto& [from, to] : {std::pair<std::string, std::string>{
                                       "CmProxyStandardLogProtocol", "CmProxyNobodysLogProtocol_"},
                                   {"CmReport\0\0\0\1", "Pair\0\0\0\1"}}) {
        std::string bytes = encoded(list);
        const size_t at = bytes.find(from, bytes.find("CmReportList") + 12);
        ASSERT_NE(at, std::string::npos);
        bytes.replace(at, from.size(), to);
        EXPECT_FALSE(decoded_as<km::codable>(bytes)) << from;
    }
}

TEST(ReportCoding, BulkDataTravelInsideAndLeaveNothingBehind) {
    put_file(home().at("data"), "one\ntwo\n");
    km::bulk_report one;
    fill_all(one);
    one.set_data(pathname(home().at("data").c_str()));
    const std::string bytes = encoded(one);
    EXPECT_TRUE(home().exists("data")); // built here, not passed on
    const auto back = decoded_as<km::bulk_report>(bytes);
    ASSERT_TRUE(back);
    const std::string copy = back->get_data().mbcs_str();
    EXPECT_EQ(get_file(copy), "one\ntwo\n");
    EXPECT_EQ(back->get_protocol()->path, back->get_data());
    EXPECT_EQ(encoded(*back), bytes);
    EXPECT_FALSE(std::filesystem::exists(copy));
    EXPECT_FALSE(decoded_as<km::codable>(bytes.substr(0, bytes.size() - 4)));
    EXPECT_FALSE(std::filesystem::exists(copy));
    // A pointer's file is not the stream's to remove.
    one.set_bulk_pointer(1);
    const auto pointer = decoded_as<km::bulk_report>(encoded(one));
    ASSERT_TRUE(pointer);
    EXPECT_EQ(pointer->get_data(), one.get_data());
    encoded(*pointer);
    EXPECT_TRUE(home().exists("data"));
}

TEST(ReportCoding, AMessageNamesNoPlaceOutsideItsDirectory) {
    empty_messages();
    km::ZNPMessage message;
    ASSERT_TRUE(message.init(new_report("1"), km::priority_a));
    const std::string bytes = encoded(message), path = message.get_path().mbcs_str();
    auto read_with = [&](std::string other) -> std::string {
        other.resize(path.size(), 'x');
        std::string changed = bytes;
        changed.replace(changed.find(path), path.size(), other);
        const auto back = decoded_as<km::ZNPMessage>(changed);
        return back ? back->get_path().mbcs_str() : "refused";
    };
    EXPECT_EQ(read_with(path), path);
    const std::string moved = path.substr(path.rfind('/'));
    EXPECT_EQ(read_with("/moved" + std::string(path.size() - 6 - moved.size(), 'y') + moved), path);
    for (const char* other : {"/etc/passwd", "\\etc\\MS\\..\\passwd", "MS/../", "/tmp/MA"})
        EXPECT_EQ(read_with(other), "refused") << other;
}
