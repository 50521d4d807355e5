// The package stream: its bytes, older streams, and streams that nobody should trust.
#include "dynamic_variables.h"
#include "package_fixture.h"
#include "pair.h"
#include "values.h"
#include "variable_list.h"

#include "support/has.h"
#include "support/coded.h"

using namespace km_test;
using namespace std::string_literals;
using km::cm_package;
using km::sp_object;

namespace {

std::string number(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}
std::string text(const std::string& value) {
    return std::string{static_cast<char>(value.size() >> 8), static_cast<char>(value.size())} +
           value;
}
std::string head(int id, int tag) {
    return {static_cast<char>(id >> 8), static_cast<char>(id), static_cast<char>(tag)};
}
std::string S(int id, const std::string& value) { return head(id, 8) + text(value); }
std::string I(int id, std::uint32_t value) { return head(id, 4) + number(value); }
std::string L(int id, std::int32_t value) {
    return head(id, 5) + number(value < 0 ? ~0U : 0U) + number(static_cast<std::uint32_t>(value));
}
std::string B(int id, int value) { return head(id, 0) + static_cast<char>(value); }
std::string O(int id, const std::string& object) { return head(id, 9) + object; }
std::string It(int id, const std::string& objects = "") { return head(id, 21) + objects + "\0"s; }
std::string object(const std::string& name, const std::string& fields) {
    return "\1"s + text("com.ombrel.sd.cmObjects." + name) + number(1) + fields + "\xFF\xFF"s;
}
const std::string null = "\0"s, root = "\2"s + number(0);

const std::string a_pair = object("Pair", I(0, 1) + S(100, "n") + S(101, "v"));
const std::string a_number = object("CmLongValue", I(0, 1) + L(100, 7));

// The fields of a command below the root, and of the composite over it.
std::string command_fields(int index) {
    return I(0, 1) + O(100, root) + B(101, 0) + S(102, "") + I(103, 0) + S(104, "") + I(105, 1) +
           B(106, 0) + I(107, static_cast<std::uint32_t>(index));
}
std::string composite(const std::string& children, int index = 9) {
    return object("CmCompositeCommand", command_fields(index) + B(200, 1) + It(201, children));
}
const std::string a_recorder = object("KmtRecorder", command_fields(2) + S(200, "c") + S(201, ""));
const std::string a_log = object("LogObjectList", S(100, "/l") + I(101, 1) + I(102, 2) + I(103, 3));

// Fields of a package behind its children in order, each with its kind and its default.
const char* const layout =
    "300Sn 301Sv 302S 303S 304S 305I2 306I2 307I0 308I0 309I0 310B0 311I0 312I0 313B0 314B0 315I0 "
    "316I0 317L0 318B0 319S 320O 322S 323S 324B1 325B1 326B0 327Sinstall 328I1 329I1 330S 331S "
    "332I-1 333I-1 334B0 335S 336S 337S 338L0 339B0 340S 341S 342L0 343S 344S 345S 346L-1 349B1 "
    "350B0 351L0 352T 353I0 354I0 355I1 356B0 357S 358B0 359I1 360B0 361T 362T 363L1 364S 365S "
    "366L-1 367S 368S 369L-1 370S 371S 372L0 ";

std::string field(int id, char kind, const std::string& value) {
    const int n = std::atoi(value.c_str());
    return kind == 'S'   ? S(id, value)
           : kind == 'I' ? I(id, static_cast<std::uint32_t>(n))
           : kind == 'L' ? L(id, n)
           : kind == 'B' ? B(id, n)
           : kind == 'O' ? O(id, null)
                         : It(id);
}

// Calls `take` with id, kind and default of each field.
void for_each_field(const std::function<void(int, char, const std::string&)>& take) {
    std::istringstream words(layout);
    for (std::string word; words >> word;)
        take(std::stoi(word.substr(0, 3)), word[3], word.substr(4));
}

// A stream with a package "n" of version "v" that has nothing but defaults. Each field can be
// replaced, by nothing too; so can the variables (1) and the package (2).
std::string stream(std::map<int, std::string> other = {},
                   const std::string& signature = "OMBREL Software Package v4.2 - SP",
                   const std::string& own_package = O(100, root)) {
    std::string package = I(0, 1) + own_package +
                          command_fields(5).substr((I(0, 1) + O(100, root)).size()) + B(200, 1);
    package += other.count(201) ? other[201] : It(201);
    for_each_field([&](int id, char kind, const std::string& value) {
        package += other.count(id) ? other[id] : field(id, kind, value);
    });
    return S(0, signature) + L(3, 1500) + O(1, other.count(1) ? other[1] : null) +
           O(2, other.count(2) ? other[2] : object("CmPackage", package));
}

struct outcome {
    int result = 0;
    std::unique_ptr<cm_package> package;
    std::string told;
    int invalid_signature = 0;
};

outcome read_back(const std::string& bytes, sp_object::sp_type type = sp_object::either,
                  int substitute = 0) {
    km::array_input_channel channel(raw(bytes), static_cast<int>(bytes.size()));
    channel.inhibit(1);
    km::spmessage messages;
    sp_object reader(&messages);
    cm_package* read = nullptr;
    outcome out;
    out.result = reader.decode(read, &channel, substitute, type);
    out.package.reset(read);
    out.told = text_of(messages);
    out.invalid_signature = reader.invalid_signature;
    return out;
}

std::string encoded(cm_package& package, sp_object::sp_type type = sp_object::sp) {
    km::array_output_channel bytes(64);
    sp_object writer;
    EXPECT_EQ(writer.encode(&package, package.variables, bytes, type), 0);
    return bytes_of(bytes);
}

// Either refused with a message and nothing handed out, or a whole package.
void expect_refused_or_whole(const outcome& out, const std::string& what) {
    if (out.result == 0) {
        EXPECT_TRUE(out.package) << what;
    } else {
        EXPECT_EQ(out.result, 9) << what;
        EXPECT_FALSE(out.package) << what;
        EXPECT_HAS(out.told, "Error decoding software package object");
    }
}

void for_each_flip(const std::string& whole, const std::vector<int>& masks,
                   const std::function<outcome(const std::string&)>& decode) {
    for (size_t i = 0; i < whole.size(); ++i)
        for (const int mask : masks) {
            std::string bytes = whole;
            bytes[i] = static_cast<char>(bytes[i] ^ mask);
            expect_refused_or_whole(decode(bytes), "flipped at " + std::to_string(i));
        }
}

class PackageCoding : public PackageTest {};

} // namespace

TEST_F(PackageCoding, EveryFieldStandsInItsPlaceAndIsWrittenBack) {
    cm_package fresh;
    fresh.name = "n";
    fresh.version = "v";
    fresh.command_index = 5;
    EXPECT_EQ(encoded(fresh), stream());

    std::map<int, std::string> other = {{201, It(201, composite(a_recorder, 3))},
                                        {320, O(320, a_log)},
                                        {352, It(352, a_pair)},
                                        {361, It(361, a_number)},
                                        {362, It(362, a_pair + a_number)}};
    for_each_field([&](int id, char kind, const std::string& value) {
        const std::string own = std::to_string(id);
        if (kind == 'S')
            other[id] = S(id, id == 371 ? "" : "t$(x)" + own);
        else if (kind == 'B')
            other[id] = B(id, value == "0");
        else if (kind == 'I' || kind == 'L')
            other[id] = field(id, kind, "-1000" + own);
    });
    const std::string bytes = stream(other);
    const outcome out = read_back(bytes);
    ASSERT_TRUE(out.package);
    out.package->variables = nullptr; // the reader's chain would be written too
    EXPECT_EQ(encoded(*out.package), bytes);
    EXPECT_EQ(km::dynamic_variable_list::get_package(), out.package.get());
    EXPECT_EQ(out.package->find("c", 1)->get_package(), out.package.get());
    // A copy is whole, and its commands belong to it.
    cm_package copy(*out.package);
    EXPECT_EQ(encoded(copy), bytes);
    EXPECT_EQ(copy.find("c", 1)->get_package(), &copy);
    cm_package assigned;
    assigned.add(new recorder("gone"), nullptr);
    assigned = copy;
    EXPECT_EQ(encoded(assigned), bytes);
}

TEST_F(PackageCoding, TextsAreSubstitutedButNotWhatIsAskedLater) {
    const std::string pairs = object("Pair", I(0, 1) + S(100, "x") + S(101, "value"));
    const std::string variables = object("VariableList", I(0, 1) + It(100, pairs));
    // The variables are object 0, their pair 1, the package 2.
    const std::string bytes = stream(
        {{1, variables}, {302, S(302, "<$(x)>")}, {357, S(357, "$(x)")}, {319, S(319, "/$(x)")}},
        "OMBREL Software Package v4.2 - SP", O(100, "\2"s + number(2)));
    for (const int substitute : {0, 1}) {
        const outcome out = read_back(bytes, sp_object::either, substitute);
        ASSERT_TRUE(out.package);
        EXPECT_EQ(out.package->title, ustring(substitute ? "<value>" : "<$(x)>"));
        EXPECT_EQ(out.package->source_path.get_text(), ustring(substitute ? "/value" : "/$(x)"));
        EXPECT_EQ(out.package->dependency, ustring("$(x)"));
    }
    km::array_input_channel channel(raw(bytes), static_cast<int>(bytes.size()));
    channel.inhibit(1);
    km::variable_list* list = nullptr;
    EXPECT_EQ(sp_object().decode_variables(&channel, list), 0);
    const std::unique_ptr<km::variable_list> owned(list);
    ASSERT_TRUE(owned);
    EXPECT_EQ(owned->size(), 1);
}

TEST_F(PackageCoding, MessagesTravelAsOneTextOnlyWhileTheyShall) {
    km::spmessage messages;
    messages.add("first");
    messages.add("second");
    cm_package package;
    package.messages = &messages;
    const outcome silent = read_back(encoded(package));
    ASSERT_TRUE(silent.package);
    EXPECT_EQ(silent.package->messages, nullptr);
    package.encode_messages = 1;
    const outcome out = read_back(encoded(package));
    ASSERT_TRUE(out.package && out.package->messages);
    EXPECT_EQ(out.package->messages->get_count(), 1);
    EXPECT_EQ(text_of(*out.package->messages), text_of(messages));
    // A caller may put its own list there, and it stays the caller's.
    out.package->messages = &messages;
}

TEST_F(PackageCoding, SignaturesAndTheOldestPackages) {
    const std::string prefix = "OMBREL Software Package v4.";
    const struct {
        const char* signature;
        sp_object::sp_type type;
        bool good;
    } rows[] = {{"2 - SP", sp_object::sp, true},      {"0 - SP", sp_object::sp, true},
                {"1 - SPB", sp_object::sp, false},    {"1 - SPB", sp_object::spb, true},
                {"2 - SP", sp_object::spb, false},    {"1 - SP", sp_object::either, true},
                {"0 - SPB", sp_object::either, true}, {"3 - SPB", sp_object::either, false},
                {"2 - sp", sp_object::either, false}, {"2 - SP ", sp_object::either, false}};
    for (const auto& row : rows) {
        const outcome out = read_back(stream({}, prefix + row.signature), row.type);
        EXPECT_EQ(out.result, row.good ? 0 : 9) << row.signature;
        EXPECT_EQ(out.invalid_signature, row.good ? 0 : 1) << row.signature;
        expect_refused_or_whole(out, row.signature);
    }
    EXPECT_EQ(read_back(stream({}, std::string(5000, 'x'))).invalid_signature, 1);

    const std::map<int, std::string> both = {{354, I(354, 7)}, {359, I(359, 2)}};
    const std::map<int, std::string> mask_only = {{354, I(354, 7)}, {359, ""}};
    const struct {
        const char* version;
        const std::map<int, std::string>& fields;
        int type, mask;
    } old[] = {{"0 - SPB", both, 0, 2},
               {"0 - SPB", mask_only, 0, 7},
               {"0 - SP", both, 7, 2},
               {"2 - SPB", both, 7, 2},
               {"2 - SPB", mask_only, 7, 1}};
    for (const auto& row : old) {
        const outcome out = read_back(stream(row.fields, prefix + row.version));
        ASSERT_TRUE(out.package) << row.version;
        EXPECT_EQ(out.package->package_type, row.type) << row.version;
        EXPECT_EQ(out.package->package_mask, row.mask) << row.version;
        out.package->variables = nullptr;
        EXPECT_EQ(encoded(*out.package, sp_object::spb).find(prefix + "2 - SPB"), 5U);
    }
}

TEST_F(PackageCoding, AStreamThatLiesIsRefused) {
    const std::string level = "\1"s + text("com.ombrel.sd.cmObjects.CmCompositeCommand") +
                              number(1) + command_fields(7) + B(200, 1) + head(201, 21);
    std::string endless, allowed, deep;
    for (int i = 0; i < 100000; ++i)
        endless += level;
    for (int i = 0; i < 600; ++i)
        deep = composite(i == 500 ? allowed = deep : deep, i);
    const struct {
        const char* what;
        int id;
        std::string bytes;
    } rows[] = {
        {"nested too deep", 201, It(201, deep)},
        {"nested without end", 201, It(201, endless)},
        {"a child that is no command", 201, It(201, a_recorder + a_pair)},
        {"a child twice", 201, It(201, a_recorder + "\2"s + number(1))},
        {"the root as its own child", 201, It(201, root)},
        {"a child that brings a package", 201,
         It(201, object("CmCompositeCommand", I(0, 1) + O(100, object("CmPackage", I(0, 1)))))},
        {"an unknown class", 201, It(201, object("NoSuchCommand", ""))},
        {"a class with a strange name", 201, It(201, object("../x", ""))},
        {"no class", 201, It(201, "\1\0\0"s)},
        {"a reference to nothing", 201, It(201, "\2"s + number(77))},
        {"a log of another class", 320, O(320, a_pair)},
        {"a log that is the root", 320, O(320, root)},
        {"a nested package of another class", 352, It(352, a_pair + a_number)},
        {"a kept element twice", 361, It(361, a_number + "\2"s + number(1))},
        {"a huge text", 302, head(302, 8) + "\xFF\xFF\x7F\xFF\xFF\xFF"s},
        {"no package", 2, null},
        {"another root", 2, a_pair},
        {"a command as root", 2, a_recorder},
    };
    for (const auto& row : rows) {
        const outcome out = read_back(stream({{row.id, row.bytes}}));
        EXPECT_EQ(out.result, 9) << row.what;
        expect_refused_or_whole(out, row.what);
        EXPECT_EQ(out.invalid_signature, 0) << row.what;
    }
    EXPECT_EQ(read_back(stream({{201, It(201, allowed)}})).result, 0);
}

TEST_F(PackageCoding, WhatIsCutOrFlippedIsRefusedOrWhole) {
    const std::string plain = stream(
        {{201, It(201, composite(a_recorder))}, {320, O(320, a_log)}, {352, It(352, a_pair)}});
    ASSERT_EQ(read_back(plain).result, 0);
    for (size_t i = 0; i < plain.size(); ++i)
        EXPECT_EQ(read_back(plain.substr(0, i)).result, 9) << "cut at " << i;
    for_each_flip(plain, {0xFF, 0x01, 0x80},
                  [](const std::string& bytes) { return read_back(bytes); });

    auto package = make();
    const pathname path(dir_.at("p.sp").c_str());
    km::spmessage messages;
    sp_object coder(&messages);
    ASSERT_EQ(coder.encode(package.get(), nullptr, path, sp_object::sp), 0);
    EXPECT_EQ(files_in("work"), 0) << "the temporary file is gone";
    const std::string whole = dir_.read("p.sp");
    const auto from_file = [&](const std::string& bytes) {
        dir_.write("p.sp", bytes);
        messages.reset();
        cm_package* read = nullptr;
        outcome out;
        out.result = coder.decode(read, path, 0, sp_object::either);
        out.package.reset(read);
        out.told = text_of(messages);
        return out;
    };
    ASSERT_EQ(from_file(whole).result, 0);
    for (size_t i = 0; i < whole.size(); ++i)
        expect_refused_or_whole(from_file(whole.substr(0, i)), "cut at " + std::to_string(i));
    for_each_flip(whole, {0xFF}, from_file);

    const pathname nowhere(dir_.at("no/such/p.sp").c_str());
    cm_package* read = nullptr;
    EXPECT_EQ(coder.decode(read, nowhere, 0, sp_object::either), 9);
    EXPECT_EQ(coder.encode(package.get(), nullptr, nowhere, sp_object::sp), 9);
    const std::string told = text_of(messages);
    EXPECT_HAS(told, "Unable to open the file "s + nowhere.mbcs_str());
    EXPECT_HAS(told, "Unable to create the path "s + nowhere.mbcs_str());
}
