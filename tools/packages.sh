# Sourced by quickstart and test: the build packages, installed where that is allowed.
# Debian names; a package counts as there when what we need of it can be found.

km_missing_packages() {
    missing=""
    need() { eval "$2" >/dev/null 2>&1 || missing="$missing $1"; }
    header() { echo "#include <$1>" | c++ -std=c++20 -E -x c++ - >/dev/null 2>&1; }
    need g++ "command -v c++"
    need cmake "command -v cmake"
    need ninja-build "command -v ninja"
    need python3 "command -v python3"
    need zlib1g-dev "header zlib.h"
    need libicu-dev "header unicode/uchar.h"
    need libssl-dev "header openssl/evp.h"
    need libcurl4-openssl-dev "header curl/curl.h"
    need libsqlite3-dev "header sqlite3.h"
    need libcli11-dev "header CLI/CLI.hpp"
    need nlohmann-json3-dev "header nlohmann/json.hpp"
    need locales "test -e /usr/share/i18n/charmaps/EUC-JP.gz -o -e /usr/share/i18n/charmaps/EUC-JP"
    need libgtest-dev "header gtest/gtest.h"
    need unzip "command -v unzip"
    need openssl "command -v openssl"
    need nginx-light "command -v nginx || test -x /usr/sbin/nginx"
    echo "$missing"
}

km_install_packages() {
    missing=$(km_missing_packages)
    [ -n "$missing" ] || return 0
    echo "installing:$missing"
    if [ "$(id -u)" -eq 0 ]; then sudo=""; elif command -v sudo >/dev/null 2>&1; then sudo="sudo -n"; else
        echo "These packages are missing and only an administrator can install them:$missing" >&2
        return 1
    fi
    $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null || {
        echo "Installing failed. Install by hand:$missing" >&2
        return 1
    }
}

# km_build PRESET [TARGET]: configure and build; ccache is used where it is there.
km_build() {
    launcher="" precompiled=""
    if [ "$1" = dev ]; then precompiled="-DKM_PRECOMPILED=ON"; fi
    if command -v ccache >/dev/null 2>&1; then launcher="-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"; fi
    cmake --preset "$1" $precompiled $launcher >"build/$1.log" 2>&1 || { cat "build/$1.log" >&2; return 1; }
    cmake --build --preset "$1" ${2:+--target "$2"}
}
