// text_importer: reads a text definition
// format: docs/DEFINITIONS.md
// invariant: nothing is built from a definition that has a fault
#include "text_importer.h"

#include "base/msg_supp.h"
#include "base/uxl.h"
#include "definition_check.h"
#include "library_loader.h"
#include "package.h"
#include "variable_list.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

void text_importer::close() {
    open_.clear();
    file_ = definition_file();
    text_.clear();
    container_ = nullptr;
    flags = 0;
    line_ = 0;
    word_was_end_ = false;
}

bool text_importer::read(const pathname& path) {
    const int descriptor = ::open(path.mbcs_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const auto refuse = [&](int error) {
        problems_.add(im_unreadable, {}, {std::strerror(error)});
        if (descriptor >= 0)
            ::close(descriptor);
        return false;
    };
    struct stat about {};
    if (descriptor < 0 || ::fstat(descriptor, &about) != 0)
        return refuse(errno);
    if (!S_ISREG(about.st_mode))
        return refuse(S_ISDIR(about.st_mode) ? EISDIR : EINVAL);
    char block[1 << 16];
    ssize_t count = 0;
    while ((count = ::read(descriptor, block, sizeof block)) > 0 &&
           text_.size() <= static_cast<size_t>(longest_file))
        text_.append(block, static_cast<size_t>(count));
    if (count < 0)
        return refuse(errno);
    ::close(descriptor);
    if (text_.size() > static_cast<size_t>(longest_file)) {
        text_.clear();
        problems_.add(im_too_large, {}, {std::to_string(longest_file)});
        return false;
    }
    constexpr char byte_order_mark[] = "\xEF\xBB\xBF";
    if (text_.starts_with(byte_order_mark))
        text_.erase(0, sizeof byte_order_mark - 1);
    return true;
}

namespace {
text_place place_at(const std::string& text, size_t at) {
    text_place where{1, 1};
    for (size_t i = 0; i < at; ++i) {
        if (text[i] == '\n')
            where = {where.line + 1, 1};
        else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80)
            ++where.column;
    }
    return where;
}
} // namespace

int text_importer::load(const pathname& path, cm_package*& package) {
    package = nullptr;
    close();
    problems_.begin(path.mbcs_str());
    spmessage unheard;
    spmessage& out = messages ? *messages : unheard;
    if (!book_.load(out))
        return 0;
    if (read(path)) {
        problems_.set_text(&text_);
        if (uxl_looks_like_utf16(text_.data(), text_.size())) {
            problems_.add(im_utf16, {1, 1});
        } else if (const size_t good = valid_utf8(text_); good < text_.size()) {
            problems_.add(im_encoding, place_at(text_, good));
        } else {
            file_ = parse_definition(text_, problems_);
            check_definition(file_, book_, problems_);
        }
    }
    if (!problems_.any())
        package = build();
    const bool failed = problems_.any() || !package || flags;
    problems_.tell(out);
    open_.clear();
    if (!failed)
        return 1;
    delete package;
    package = nullptr;
    return 0;
}

cm_package* text_importer::build() {
    std::string key;
    const auto* stanza = book_.stanza(file_.root->name, "root", key);
    codable* made = make(*file_.root, stanza->builder.mbcs_str());
    auto* package = dynamic_cast<cm_package*>(made);
    if (!package) {
        delete made;
        return nullptr;
    }
    package->set_package(package);
    spmessage* former = package->messages;
    package->messages = messages;
    open(*file_.root);
    package->import(*this);
    open_.pop_back();
    package->messages = former;
    return package;
}

codable* text_importer::make(const definition_block& block, const std::string& builder) {
    const ustring name(("make_" + builder).c_str());
    void* address = builder.empty() ? nullptr : library_loader::instance()->get_api(name);
    if (!address)
        problems_.add(im_no_builder, block.place, {block.name});
    return address ? reinterpret_cast<codable* (*)()>(address)() : nullptr;
}

void text_importer::open(const definition_block& block, bool is_word) {
    open_block fresh{&block, {}, {}, 0, 0, is_word};
    const std::string context = open_.empty() ? "root" : here().block->name;
    book_.stanza(block.name, context, fresh.key);
    line_ = block.place.line;
    open_.push_back(std::move(fresh));
}

text_importer::found_value text_importer::value_of(const char* name) {
    found_value found;
    if (open_.empty())
        return found;
    found.rule = book_.attribute(name, here().key);
    if (const auto* given = here().block->find(name)) {
        line_ = given->place.line;
        found.text = &given->value;
        found.present = 1;
    } else if (found.rule && !found.rule->default_value.empty()) {
        line_ = here().block->place.line;
        default_ = found.rule->default_value.mbcs_str();
        found.text = &default_;
    }
    return found;
}

int text_importer::get_boolean(const char* name, int* value) {
    const auto found = value_of(name);
    if (found.text)
        truth_value(*found.text, *value);
    return found.present;
}

int text_importer::get_string(const char* name, ustring* value) {
    const auto found = value_of(name);
    if (found.text)
        *value = ustring(found.text->c_str());
    return found.present;
}

int text_importer::get_pathname(const char* name, pathname* value) {
    const auto found = value_of(name);
    if (found.text)
        *value = ustring(found.text->c_str());
    return found.present;
}

// The text of a choice stands for the number of its key.
int text_importer::get_integer(const char* name, int* value) {
    const auto found = value_of(name);
    if (!found.text)
        return 0;
    ustring key;
    if (!found.rule || found.rule->type != attribute_descriptor::t_single_choice)
        whole_number(*found.text, *value);
    else if (found.rule->find_choice_by_value(key, ustring(found.text->c_str())))
        *value = std::atoi(key.mbcs_str());
    return found.present;
}

int text_importer::get_object(const char* name, codable** value) {
    *value = nullptr;
    const auto* rule = open_.empty() ? nullptr : book_.attribute(name, here().key);
    const auto* block = open_.empty() ? nullptr : here().block->find_block(name);
    if (!rule || !block || rule->type != attribute_descriptor::t_object)
        return 0;
    *value = make(*block, rule->object_builder.mbcs_str());
    if (!*value)
        return 0;
    open(*block);
    (*value)->import(*this);
    open_.pop_back();
    return 1;
}

// In the order of their names, so that a table that is filled with them is coded the same whatever
// their order in the text.
int text_importer::next_pair(ustring* name, ustring* value) {
    if (open_.empty())
        return 0;
    auto& at = here();
    if (at.next_pair == 0) {
        for (const auto& one : at.block->attributes)
            at.pairs.push_back(&one);
        std::stable_sort(at.pairs.begin(), at.pairs.end(),
                         [](const auto* a, const auto* b) { return a->name < b->name; });
    }
    if (at.next_pair >= at.pairs.size())
        return 0;
    const auto& one = *at.pairs[at.next_pair++];
    line_ = one.place.line;
    *name = ustring(one.name.c_str());
    *value = ustring(one.value.c_str());
    return 1;
}

// A block is delivered as its name, which opens it, and the word "end", which closes it.
int text_importer::next_word(ustring* word) {
    if (open_.empty())
        return 0;
    word_was_end_ = here().is_word;
    if (word_was_end_) {
        line_ = here().block->end.line;
        open_.pop_back();
        *word = u"end";
        return 1;
    }
    const auto& blocks = here().block->blocks;
    if (here().next_block >= blocks.size())
        return 0;
    const auto& block = *blocks[here().next_block++];
    *word = ustring(block.name.c_str());
    open(block, true);
    return 1;
}

void text_importer::unread_word() {
    if (open_.empty())
        return;
    if (word_was_end_) {
        open(*here().block->blocks[here().next_block - 1], true);
    } else if (here().is_word) {
        open_.pop_back();
        --here().next_block;
    }
}

bool text_importer::is_object(const definition_block& block) {
    const auto* rule = book_.attribute(block.name, here().key);
    return rule && rule->type == attribute_descriptor::t_object;
}

cm_command* text_importer::next_command() {
    if (open_.empty())
        return nullptr;
    const auto& blocks = here().block->blocks;
    while (here().next_block < blocks.size()) {
        const auto& block = *blocks[here().next_block++];
        if (is_object(block))
            continue;
        std::string key;
        const auto* stanza = book_.stanza(block.name, here().block->name, key);
        codable* made = stanza ? make(block, stanza->builder.mbcs_str()) : nullptr;
        auto* command = dynamic_cast<cm_command*>(made);
        if (!command) {
            delete made;
            continue;
        }
        open(block);
        command->import(*this);
        open_.pop_back();
        return command;
    }
    return nullptr;
}

int text_importer::is_shared_allowed() {
    return !open_.empty() && book_.attribute("is_shared", here().key) != nullptr;
}

ustring text_importer::current_stanza() {
    return open_.empty() ? ustring() : ustring(here().block->name.c_str());
}

// One object for the process, which its next load resets.
extern "C" importer* make_importer() {
    static text_importer the_importer;
    the_importer.close();
    return &the_importer;
}

} // namespace km
