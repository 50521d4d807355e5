# What both programs use.
greet() {
    echo "suite: $1"
}
