// tree_memory: memory for the commands of a large package
#pragma once

namespace kmhost {

// A tree of commands that takes `packed` bytes in its file is about to be read. Where it is large,
// and the system lends large pages to whoever asks for them, it comes to stand in such: thousands
// of small ones take as long to come into being as what is read into them, and longer to be found
// again. Nothing relies on it. For a process that ends with its operation.
void expect_tree(long packed);

} // namespace kmhost
