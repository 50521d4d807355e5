// rule_book: what the rules file says, in the questions an importer has
#pragma once

#include "rules_checker.h"

#include <memory>
#include <string>
#include <vector>

namespace km {

class spmessage;

class rule_book {
  public:
    // The product's rules file, which a process reads again only where it was changed; false with a
    // message.
    bool load(spmessage& messages);

    rules_checker& rules() { return *rules_; }
    std::string root() const { return rules_->root.mbcs_str(); }
    // The stanza of that name that may stand in `context` ("root" for none), with the key it has in
    // the rules; null if there is none. Stanzas without a context only lend attributes.
    const stanza_descriptor* stanza(const std::string& name, const std::string& context,
                                    std::string& key) const;
    const attribute_descriptor* attribute(const std::string& name, const std::string& key) const;
    // The names, sorted.
    std::vector<std::string> stanzas_in(const std::string& context) const;
    std::vector<std::string> attributes_of(const std::string& key) const;
    std::vector<std::string> mandatory_of(const std::string& key) const;
    // Stanzas of that name stand somewhere.
    bool is_stanza(const std::string& name) const;
    // A stanza whose pairs are free.
    bool is_free(const std::string& key) const { return attribute("*", key) != nullptr; }

  private:
    template <class Visit> void each_attribute(const std::string& key, Visit visit) const;
    std::shared_ptr<rules_checker> rules_ = std::make_shared<rules_checker>();
};

std::vector<std::string> texts_of(const vector& list);
// "'a', 'b' or 'c'" out of the values of choices.
std::string choices_text(const attribute_descriptor& rule);
std::vector<std::string> choice_values(const attribute_descriptor& rule);

} // namespace km
