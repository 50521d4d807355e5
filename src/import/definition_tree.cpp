// definition_tree: the blocks of a text definition
// format: docs/DEFINITIONS.md
// invariant: a block is never nested deeper than deepest_block
#include "definition_tree.h"

namespace km {

const definition_attribute* definition_block::find(const std::string& attribute) const {
    for (const auto& one : attributes)
        if (one.name == attribute)
            return &one;
    return nullptr;
}

const definition_block* definition_block::find_block(const std::string& block) const {
    for (const auto& one : blocks)
        if (one->name == block)
            return one.get();
    return nullptr;
}

namespace {

class parser {
  public:
    parser(const std::string& text, definition_problems& problems)
        : lexer_(text, problems), problems_(problems) {}

    definition_file parse() {
        definition_file file;
        read_signature(file);
        auto token = lexer_.next();
        if (token.what == definition_token::end)
            return file;
        file.root = read_root(token);
        token = lexer_.next();
        if (file.root && token.what != definition_token::end)
            problems_.add(im_behind_end, token.place, {token.shown()});
        file.comments = lexer_.take_comments();
        return file;
    }

  private:
    using token_kind = definition_token;

    void read_signature(definition_file& file) {
        for (int i = 0; i < 2; ++i) {
            const auto token = lexer_.next();
            if (i == 0)
                file.signature_place = token.place;
            if (token.what != token_kind::word) {
                lexer_.unread(token);
                return;
            }
            file.signature += (i ? " " : "") + token.text;
        }
    }

    void expected(const char* what, const definition_token& found) {
        problems_.add(im_expected, found.place, {what, found.shown()});
    }

    std::unique_ptr<definition_block> read_root(const definition_token& name) {
        if (name.what != token_kind::word) {
            expected("the name of a block", name);
            return nullptr;
        }
        const auto brace = lexer_.next();
        if (brace.what != token_kind::open) {
            expected("'{'", brace);
            return nullptr;
        }
        return read_blocks(name);
    }

    static std::unique_ptr<definition_block> new_block(const definition_token& name) {
        auto block = std::make_unique<definition_block>();
        block->name = name.text;
        block->place = name.place;
        return block;
    }

    // Everything to the end of the block whose brace was read.
    std::unique_ptr<definition_block> read_blocks(const definition_token& name) {
        auto root = new_block(name);
        std::vector<definition_block*> open{root.get()};
        while (!open.empty()) {
            const auto token = lexer_.next();
            if (token.what == token_kind::end) {
                // Of many open ones the innermost tells where to look.
                problems_.add(im_unclosed_block, open.back()->place, {open.back()->name});
                return root;
            }
            if (token.what == token_kind::close) {
                open.back()->end = token.place;
                open.pop_back();
            } else if (token.what == token_kind::word) {
                read_item(token, open);
            } else {
                expected("a name or '}'", token);
                if (token.what == token_kind::open)
                    skip_block();
            }
        }
        return root;
    }

    void read_item(const definition_token& name, std::vector<definition_block*>& open) {
        const auto mark = lexer_.next();
        if (mark.what == token_kind::equals) {
            read_value(name, *open.back());
        } else if (mark.what != token_kind::open) {
            expected("'=' or '{'", mark);
            lexer_.unread(mark);
        } else if (open.size() >= deepest_block) {
            problems_.add(im_too_deep, name.place, {std::to_string(deepest_block)});
            skip_block();
        } else {
            open.back()->blocks.push_back(new_block(name));
            open.push_back(open.back()->blocks.back().get());
        }
    }

    void read_value(const definition_token& name, definition_block& block) {
        const auto value = lexer_.next();
        if (!value.is_value()) {
            expected("a value", value);
            lexer_.unread(value);
            return;
        }
        block.attributes.push_back({name.text, value.text, name.place, value.place});
    }

    // The block whose brace was read.
    void skip_block() {
        for (size_t open = 1; open > 0;) {
            const auto token = lexer_.next();
            if (token.what == token_kind::end) {
                lexer_.unread(token);
                return;
            }
            open += token.what == token_kind::open;
            open -= token.what == token_kind::close;
        }
    }

    definition_lexer lexer_;
    definition_problems& problems_;
};

} // namespace

definition_file parse_definition(const std::string& text, definition_problems& problems) {
    return parser(text, problems).parse();
}

} // namespace km
