// iterator: cursor over a container
#pragma once

namespace km {

class codable;

// What can be coded as a sequence gives one of these.
class iterator {
  public:
    virtual int hasMoreElements() = 0;
    // The next element, null at the end. Who owns it is the container's word.
    virtual codable* nextElement() = 0;
    virtual ~iterator() = default;
};

} // namespace km
