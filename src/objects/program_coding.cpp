// program_coding: coded and text form of programs of the user
// format: docs/formats/package-file.md
// invariant: what a definition gives is exported as it was given
#include "base/msg_supp.h"
#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "km_object.h"
#include "object_messages.h"
#include "program_command.h"
#include "program_run.h"

namespace km {

namespace {
constexpr const char* prefixes[program_command::parts] = {"install_", "remove_", "undo_", "commit_",
                                                          "verify_"};
constexpr int first_field = 200;
constexpr int fields_of_each = 10;

int field_of(size_t part) { return first_field + fields_of_each * static_cast<int>(part); }
} // namespace

void program_command::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    for (size_t i = 0; i < programs.size(); ++i) {
        to.encode_string_field(field_of(i), programs[i].path);
        to.encode_string_field(field_of(i) + 1, programs[i].arguments);
        to.encode_integer_field(field_of(i) + 2, programs[i].timeout);
    }
    to.encode_string_field(250, working_directory);
    to.encode_string_field(251, environment);
    to.encode_string_field(252, user);
    to.encode_string_field(253, exit_codes);
    if (files.tree())
        to.encode_object_field(254, files.tree());
    if (!directory.empty())
        to.encode_string_field(255, directory);
    if (!acts_for.empty()) {
        to.encode_string_field(256, acts_for);
        to.encode_boolean_field(257, is_removal);
    }
}

codable* program_command::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    for (size_t i = 0; i < programs.size(); ++i) {
        from.decode_string_field(field_of(i), programs[i].path);
        from.decode_string_field(field_of(i) + 1, programs[i].arguments);
        from.decode_integer_field(field_of(i) + 2, programs[i].timeout);
    }
    from.decode_string_field(250, working_directory);
    from.decode_string_field(251, environment);
    from.decode_string_field(252, user);
    from.decode_string_field(253, exit_codes);
    files.take(from.take_owned<cm_composite_command>(254));
    from.decode_string_field(255, directory);
    from.decode_string_field(256, acts_for);
    from.decode_boolean_field(257, is_removal);
    return this;
}

namespace {
void refuse(importer& from, const std::string& key, const std::string& fault) {
    if (from.messages)
        from.messages->add(object_catalog, static_cast<long>(om_bad_text),
                           std::to_string(from.line_number()).c_str(), key.c_str(), fault.c_str());
    from.flags = bad_value;
}

void import_words(importer& from, const std::string& key, ustring& text) {
    std::vector<std::string> words;
    if (from.get_string(key.c_str(), &text) && !split_words(text.mbcs_str(), words))
        refuse(from, key, "a quote is not closed");
}
} // namespace

void program_command::import(importer& from) {
    from.get_string("caption", &caption);
    for (size_t i = 0; i < programs.size(); ++i) {
        const std::string prefix = prefixes[i];
        from.get_string((prefix + "path").c_str(), &programs[i].path);
        import_words(from, prefix + "arguments", programs[i].arguments);
        int seconds = programs[i].timeout;
        from.get_integer((prefix + "timeout").c_str(), &seconds);
        programs[i].timeout = seconds < 0 ? -1 : seconds;
    }
    from.get_string("working_directory", &working_directory);
    import_words(from, "environment", environment);
    from.get_string("user", &user);
    std::string fault;
    if (from.get_string("exit_codes", &exit_codes) &&
        !program_exit_codes().read(exit_codes.mbcs_str(), fault))
        refuse(from, "exit_codes", fault);
    import_files(from);
    cm_command::import(from);
}

void program_command::import_files(importer& from) {
    codable* block = nullptr;
    from.get_object("corequisite_files", &block);
    auto* tree = dynamic_cast<cm_composite_command*>(block);
    if (!tree)
        delete block;
    files.take(tree);
    if (const auto path = files.refused_path(); !path.empty())
        refuse(from, "corequisite_files",
               "the path '" + path +
                   "' is not below the directory of "
                   "the program, or comes twice");
    for (size_t i = 0; i < programs.size(); ++i) {
        const std::string path = programs[i].path.mbcs_str();
        if (!path.empty() && path[0] != '/' && path.compare(0, 2, "$(") != 0 && !files.brings(path))
            refuse(from, prefixes[i] + std::string("path"),
                   "'" + path + "' is neither absolute nor one of its corequisite_files");
    }
}

void program_command::export_(exporter& to) const {
    const auto put = [&to](const std::string& key, const ustring& text) {
        if (!text.empty())
            to.put_string(key.c_str(), text);
    };
    to.begin_stanza("user_program");
    put("caption", caption);
    for (size_t i = 0; i < programs.size(); ++i) {
        const std::string prefix = prefixes[i];
        put(prefix + "path", programs[i].path);
        put(prefix + "arguments", programs[i].arguments);
        if (programs[i].timeout >= 0)
            to.put_integer((prefix + "timeout").c_str(), programs[i].timeout);
    }
    put("working_directory", working_directory);
    put("environment", environment);
    put("user", user);
    put("exit_codes", exit_codes);
    to.put_object("corequisite_files", files.tree());
    cm_command::export_(to);
    if (scope == 2)
        to.put_boolean("is_per_user", 1);
    to.end_stanza();
}

} // namespace km
