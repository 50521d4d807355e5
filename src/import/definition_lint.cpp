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
#include <vector>

namespace km {

namespace {

// Names of the references in a text that hold no reference themselves.
std::vector<std::string> references_in(const std::string& text) {
    std::vector<std::string> names;
    size_t open = std::string::npos; // behind the last "$(" that is not closed
    for (size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 2, "$(") == 0) {
            open = ++at + 1;
        } else if (text[at] == ')' && open != std::string::npos) {
            names.push_back(text.substr(open, at - open));
            open = std::string::npos; // the name around it is known at run time only
        }
    }
    return names;
}

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
        if (block.name == "default_variables")
            lint_circles(block);
        note_object(block, context);
        for (const auto& inner : block.blocks)
            lint_block(*inner, block.name);
    }

    void lint_value(const definition_attribute& one) {
        if (one.name == "dependency" && !one.value.empty())
            if (expression parsed(ustring(one.value.c_str())); !parsed.infix2postfix())
                problems_.add(im_no_condition, one.value_place,
                              {one.name, parsed.error.mbcs_str()});
        std::set<std::string> told;
        for (const auto& name : references_in(one.value))
            if (told.insert(name).second && !is_defined(name))
                problems_.add(
                    im_no_variable, one.value_place,
                    {name, hint_text(problems_.is_full() ? "" : nearest_word(name, names_))});
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

    // Takes away, again and again, what refers to nothing that is left; the rest goes in a circle,
    // or leads into one.
    void lint_circles(const definition_block& defaults) {
        std::map<std::string, std::vector<const definition_attribute*>> users;
        std::map<const definition_attribute*, size_t> waits;
        for (const auto& one : defaults.attributes)
            users[one.name];
        std::vector<const definition_attribute*> settled;
        for (const auto& one : defaults.attributes) {
            for (const auto& name : references_in(one.value))
                if (const auto found = users.find(name); found != users.end()) {
                    found->second.push_back(&one);
                    ++waits[&one];
                }
            if (!waits.contains(&one))
                settled.push_back(&one);
        }
        while (!settled.empty()) {
            const auto* one = settled.back();
            settled.pop_back();
            for (const auto* user : users[one->name])
                if (--waits[user] == 0)
                    settled.push_back(user);
        }
        for (const auto& [one, left] : waits)
            if (left)
                problems_.add(im_circle, one->place, {one->name});
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
