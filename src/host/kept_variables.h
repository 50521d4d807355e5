// kept_variables: the default variables of one package, while others are read
#pragma once

#include <memory>

namespace km {
class variable_list;
}

namespace kmhost {

// Whatever package is decoded last, its default variables are those that conditions and texts are
// resolved with. As long as this lives others can be read; then those of before stand again.
class kept_variables {
  public:
    kept_variables();
    ~kept_variables();
    kept_variables(const kept_variables&) = delete;
    kept_variables& operator=(const kept_variables&) = delete;

  private:
    std::unique_ptr<km::variable_list> kept_; // null: nothing was decoded yet
};

} // namespace kmhost
