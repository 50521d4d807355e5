// definition_lint: what is doubtful in a definition that can be read
// no format
// invariant: nothing is built or changed
#include "definition_lint.h"

#include "base/msg_supp.h"
#include "definition_check.h"
#include "definition_references.h"
#include "lint_findings.h"
#include "package.h"
#include "text_importer.h"
#include "variable_builder.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace km {

namespace {

class linter {
  public:
    linter(const rule_book& book, variable_list& variables, const std::string& base,
           const definition_file& file, definition_problems& problems)
        : book_(book), variables_(variables), base_(base), problems_(problems),
          allowed_(file, problems) {
        for (const auto* list = &variables; list; list = list->get_next())
            for (Keyslist each(*list); auto* entry = each.next_entry();)
                if (const auto* name = dynamic_cast<const ustring*>(entry->get_key()))
                    names_.emplace_back(name->mbcs_str());
    }

    void lint(const definition_block& root) {
        lint_block(root, "root");
        for (const auto& one : removals_)
            if (!additions_.contains(one.first))
                find(im_not_put_back, one.second->place, {one.second->name});
    }

  private:
    void find(import_message key, text_place place, std::vector<std::string> arguments) {
        if (!allowed_.allows(key, place))
            problems_.add(key, place, std::move(arguments));
    }

    // No deeper than blocks are.
    void lint_block(const definition_block& block, const std::string& context) {
        for (const auto& one : block.attributes)
            lint_value(one);
        if (block.name == "user_program" && block.find("install_path") &&
            !block.find("remove_path"))
            find(im_program_stays, block.place, {block.name});
        if (is_file(block.name))
            lint_file(block, context);
        lint_text(block);
        note_object(block, context);
        for (const auto& inner : block.blocks)
            lint_block(*inner, block.name);
    }

    void lint_value(const definition_attribute& one) {
        if (one.name == "dependency")
            check_condition(one, problems_);
        std::set<std::string> told;
        for (const auto& name : references_in(one.value))
            if (told.insert(name).second && !is_defined(name))
                find(im_no_variable, one.value_place,
                     {name, hint_text(problems_.is_full() ? "" : nearest_word(name, names_))});
    }

    static bool is_file(const std::string& name) {
        return name == "add_file" || name == "add_kept_file";
    }

    void lint_file(const definition_block& block, const std::string& context) {
        const auto* source = block.find("source");
        if (!source || source->value.empty())
            find(im_no_source, source ? source->value_place : block.place, {block.name});
        else
            lint_source(*source);
        const auto* path = block.find("path");
        if (!path || context == "corequisite_files")
            return;
        for (auto [one, end] = texts_.equal_range(path->value); one != end; ++one)
            find(im_text_before, one->second->place,
                 {block.name, std::to_string(block.place.line)});
    }

    // As a build opens it; what only a variable from outside tells cannot be known.
    void lint_source(const definition_attribute& source) {
        ustring name(source.value.c_str());
        variables_.substitute_variables(name);
        const std::string given = name.mbcs_str();
        if (given.find("$(") != std::string::npos)
            return;
        const std::string file = given[0] == '/' || base_.empty() ? given : base_ + "/" + given;
        struct stat about {};
        const int error = ::lstat(file.c_str(), &about) == 0 ? 0 : errno;
        if (error || !S_ISREG(about.st_mode))
            find(im_bad_source, source.value_place,
                 {file, error ? std::strerror(error) : "it is no regular file"});
        else if (::access(file.c_str(), R_OK) != 0)
            find(im_bad_source, source.value_place, {file, std::strerror(errno)});
    }

    void lint_text(const definition_block& block) {
        const auto* path = block.find("path");
        if (path && block.name.starts_with("add_") && !is_file(block.name) &&
            (block.find("text") || block.find("token") || block.find("key")))
            texts_.emplace(path->value, &block);
    }

    // Whether a name has a value, not which: values can be of any size and depth.
    bool is_defined(const std::string& name) {
        const auto [known, fresh] = defined_.try_emplace(name, false);
        if (fresh) {
            const ustring key(name.c_str());
            known->second =
                variables_.contains(key) ||
                std::unique_ptr<ustring>(variables_.check_defined(key)).get() != nullptr;
        }
        return known->second;
    }

    // What an object is called: the rest of the block's name and what its rules demand of it.
    void note_object(const definition_block& block, const std::string& context) {
        const bool adds = block.name.starts_with("add_");
        if ((!adds && !block.name.starts_with("remove_")) || context == "corequisite_files")
            return;
        std::string key;
        if (!book_.stanza(block.name, context, key))
            return;
        std::string object = block.name.substr(block.name.find('_'));
        for (const auto& name : book_.mandatory_of(key))
            if (const auto* value = block.find(name))
                object += std::string("\0", 1) + name + "=" + value->value;
        if (adds)
            additions_.insert(object);
        else
            removals_.emplace(object, &block);
    }

    const rule_book& book_;
    variable_list& variables_;
    const std::string& base_;
    definition_problems& problems_;
    const allowed_findings allowed_;
    std::multimap<std::string, const definition_block*> texts_; // by file, up to here
    std::vector<std::string> names_;
    std::map<std::string, bool> defined_; // that were asked for
    std::set<std::string> additions_;
    std::multimap<std::string, const definition_block*> removals_;
};

// The values that a definition gives, behind those that every machine has.
variable_list* variables_of(const definition_file& file) {
    auto* own = new variable_list;
    const auto* defaults = file.root ? file.root->find_block("default_variables") : nullptr;
    if (defaults)
        for (const auto& one : defaults->attributes)
            own->set_value(ustring(one.name.c_str()), ustring(one.value.c_str()));
    return variable_list_builder::get_importer_variables(own);
}

} // namespace

void lint_blocks(const definition_file& file, const rule_book& book, variable_list& variables,
                 const std::string& base, definition_problems& problems) {
    if (file.root)
        linter(book, variables, base, file, problems).lint(*file.root);
}

} // namespace km

extern "C" int lint_definition(const km::pathname* path, const char* base,
                               km::spmessage* messages) {
    using namespace km;
    const std::string file = path->mbcs_str();
    const std::string own = file.substr(0, file.find_last_of('/') + 1);
    text_importer reader;
    reader.messages = messages;
    cm_package* package = nullptr;
    reader.load(*path, package);
    delete package;
    if (!reader.problems().any()) {
        definition_problems found;
        found.begin(path->mbcs_str());
        found.set_text(&reader.text());
        lint_blocks(reader.file(), reader.book(), *variables_of(reader.file()),
                    base && *base ? base
                    : own.empty() ? "."
                                  : own,
                    found);
        found.tell(*messages);
    }
    return messages->get_count() == 0;
}
