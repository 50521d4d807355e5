// definition_lint: what is doubtful in a definition that can be read
// no format
// invariant: nothing is built or changed
#include "definition_lint.h"

#include "base/msg_supp.h"
#include "expression.h"
#include "package.h"
#include "text_importer.h"
#include "variable_builder.h"

#include <map>
#include <memory>
#include <set>

namespace km {

namespace {

// Of one value; more faults than these are not listed anyway.
constexpr int most_references = definition_problems::most;

class linter {
  public:
    linter(const rule_book& book, variable_list& variables, definition_problems& problems)
        : book_(book), variables_(variables), problems_(problems) {
        for (const auto* list = &variables; list; list = list->get_next())
            for (Keyslist each(*list); auto* entry = each.next_entry();)
                if (const auto* name = dynamic_cast<const ustring*>(entry->get_key()))
                    names_.emplace_back(name->mbcs_str());
    }

    void lint(const definition_block& root) {
        lint_block(root, "root");
        for (const auto& one : removals_)
            if (!additions_.contains(one.first))
                problems_.add(im_not_put_back, one.second->place, {one.second->name});
    }

  private:
    // No deeper than blocks are.
    void lint_block(const definition_block& block, const std::string& context) {
        for (const auto& one : block.attributes)
            lint_value(one);
        if (block.name == "user_program" && block.find("install_path") &&
            !block.find("remove_path"))
            problems_.add(im_program_stays, block.place, {block.name});
        note_object(block, context);
        for (const auto& inner : block.blocks)
            lint_block(*inner, block.name);
    }

    void lint_value(const definition_attribute& one) {
        if (one.name == "dependency" && !one.value.empty())
            if (expression parsed(ustring(one.value.c_str())); !parsed.infix2postfix())
                problems_.add(im_no_condition, one.value_place,
                              {one.name, parsed.error.mbcs_str()});
        ustring rest(one.value.c_str());
        std::set<std::string> told;
        for (int i = 0; i < most_references; ++i) {
            const ustring name = variables_.lookup_undefined_variables(rest);
            if (name.empty())
                return;
            const std::string text = name.mbcs_str();
            if (told.insert(text).second)
                problems_.add(im_no_variable, one.value_place,
                              {text, hint_text(nearest_word(text, names_))});
            const std::unique_ptr<ustring> reference(variable_list::variable_name(name));
            const auto length = rest.length();
            rest.change(*reference, ustring());
            if (rest.length() == length) // it came out of another value
                return;
        }
    }

    // What an object is called: the rest of the block's name and what its rules demand of it.
    void note_object(const definition_block& block, const std::string& context) {
        const bool adds = block.name.starts_with("add_");
        if (!adds && !block.name.starts_with("remove_"))
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
    definition_problems& problems_;
    std::vector<std::string> names_;
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
                 definition_problems& problems) {
    if (file.root)
        linter(book, variables, problems).lint(*file.root);
}

} // namespace km

extern "C" int lint_definition(const km::pathname* path, km::spmessage* messages) {
    using namespace km;
    text_importer reader;
    reader.messages = messages;
    cm_package* package = nullptr;
    reader.load(*path, package);
    delete package;
    if (!reader.problems().any()) {
        definition_problems found;
        found.begin(path->mbcs_str());
        found.set_text(&reader.text());
        lint_blocks(reader.file(), reader.book(), *variables_of(reader.file()), found);
        found.tell(*messages);
    }
    return messages->get_count() == 0;
}
