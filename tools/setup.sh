# Sourced by the tools: makes sure that what they need is installed.

# takes_nothing WORD...: refuses what stands behind the name of a tool without options.
takes_nothing() { [ $# -eq 0 ] || { echo "usage: tools/$(basename "$0")" >&2; exit 2; }; }

has_command() { command -v "$1" >/dev/null; }
has_header() { echo "#include <$1>" | g++ -x c++ -std=c++20 -fsyntax-only - 2>/dev/null; }

# The Debian package, and how to tell that it is there.
is_installed() {
    case $1 in
    g++) has_command g++ ;;
    cmake) has_command cmake ;;
    ninja-build) has_command ninja ;;
    clang-format | clang-tidy | gcovr | python3) has_command "$1" ;;
    g++-arm-linux-gnueabihf) has_command arm-linux-gnueabihf-g++ ;;
    g++-arm-linux-gnueabi) has_command arm-linux-gnueabi-g++ ;;
    qemu-user-static) has_command qemu-arm-static ;;
    qemu-system-arm) has_command qemu-system-arm ;;
    cpio) has_command cpio ;;
    cmark-gfm) has_command cmark-gfm ;;
    poppler-utils) has_command pdfinfo ;;
    musl-dev) [ -e /usr/lib/x86_64-linux-musl/libc.a ] ;;
    libbenchmark-dev) has_header benchmark/benchmark.h ;;
    libtomlplusplus-dev) has_header toml++/toml.h ;;
    libcli11-dev) has_header CLI/CLI.hpp ;;
    nlohmann-json3-dev) has_header nlohmann/json.hpp ;;
    libssl-dev) has_header openssl/evp.h ;;
    libmicrohttpd-dev) has_header microhttpd.h ;;
    libjs-chart.js) [ -e /usr/share/javascript/chart.js/chart.min.js ] ;;
    fonts-noto-cjk) [ -e /usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc ] ;;
    chromium) has_command chromium ;;
    chromium-driver) has_command chromedriver ;;
    python3-selenium) /usr/bin/python3 -c 'import selenium' 2>/dev/null ;;
    pkg-config) has_command pkg-config ;;
    openssh-server) [ -x /usr/sbin/sshd ] ;;
    openssh-client) has_command ssh && has_command ssh-keygen ;;
    libgmock-dev) has_header gmock/gmock.h ;;
    libre2-dev) has_header re2/re2.h ;;
    libsoci-dev) has_header soci/soci-config.h ;;
    postgresql) compgen -G '/usr/lib/postgresql/*/bin/postgres' >/dev/null ;;
    *) echo "setup: unknown package $1" >&2; exit 1 ;;
    esac
}

simulator_packages="g++ cmake ninja-build libtomlplusplus-dev libcli11-dev nlohmann-json3-dev"
station_packages="libssl-dev libre2-dev libsoci-dev pkg-config libmicrohttpd-dev libjs-chart.js"
browser_packages="chromium chromium-driver python3-selenium fonts-noto-cjk"

# need PACKAGE...: installs what is missing on Debian and Ubuntu, as root or through sudo.
need() {
    local package missing=() as_root=()
    for package; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if ! has_command apt-get; then
        echo "Missing: ${missing[*]} (names of Debian packages). Please install them." >&2
        exit 1
    fi
    if [ "$(id -u)" -ne 0 ]; then
        if ! has_command sudo; then
            echo "Missing: ${missing[*]}. Please install them as root: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}" >&2
    case " ${missing[*]} " in
    *" postgresql "*) install_server_alone ;;
    esac
    install_packages "${missing[@]}"
}

# Installs PostgreSQL without the cluster that its package makes and starts: the checks start one
# of their own. The package's setting stays as it was.
install_server_alone() {
    local settings=/etc/postgresql-common/createcluster.conf
    install_packages postgresql-common
    grep -q '^#create_main_cluster = true' "$settings" || return 0
    "${as_root[@]}" sed -i 's/^#create_main_cluster = true/create_main_cluster = false/' "$settings"
    install_packages postgresql
    "${as_root[@]}" sed -i 's/^create_main_cluster = false/#create_main_cluster = true/' "$settings"
}

# install_packages PACKAGE...: as root, or with the words of the array as_root in front. A package
# list that cannot be fetched matters only where a package cannot be had without it.
install_packages() {
    local package lists reason failed=()
    apt_install "$@" >/dev/null 2>&1 && return
    lists=$("${as_root[@]}" apt-get update -qq 2>&1 >/dev/null) || true
    apt_install "$@" >/dev/null 2>&1 && return
    for package; do
        reason=$(apt_install "$package" 2>&1 >/dev/null) && continue
        failed+=("$package: $(grep '^E:' <<<"$reason" | head -n 1)")
    done
    [ ${#failed[@]} -eq 0 ] && return
    grep '^[EW]:' <<<"$lists" >&2 || true
    printf 'setup: cannot install %s\n' "${failed[@]}" >&2
    exit 1
}

apt_install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "$@"
}

# need_foreign ARCHITECTURE FOLDER PACKAGE...: unpacks Debian packages of another architecture there.
# apt keeps its lists for that beside the folder; the machine's own set-up stays as it is.
need_foreign() {
    local architecture=$1 folder=$2 apt=$PWD/$2-fetched said package kernel
    [ -e "$folder" ] && return
    shift 2
    echo "Fetching $* of $architecture into $folder" >&2
    rm -rf "$apt"
    mkdir -p "$apt"/{lists,archives}/partial
    : >"$apt/status"
    local own=(-qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture"
        -o Dir::State::Lists="$apt/lists" -o Dir::State::status="$apt/status"
        -o Dir::Cache="$apt" -o Dir::Cache::Archives="$apt/archives"
        -o Acquire::Languages=none -o APT::Sandbox::User="$(id -un)")
    said=$(apt-get "${own[@]}" update 2>&1) || true  # a list that is not needed may be missing
    for package; do
        # The kernel's package stands for the newest one.
        kernel=$(apt-cache "${own[@]}" depends "$package" 2>&1 \
            | sed -n 's/.*Depends: \(linux-image-.*\)/\1/p')
        if ! said+=$(cd "$apt" && apt-get "${own[@]}" download "${kernel:-$package}" 2>&1); then
            echo "$said" >&2
            echo "setup: cannot fetch $package of $architecture; unpack it into $folder" >&2
            exit 1
        fi
    done
    for package in "$apt"/*.deb; do
        dpkg-deb -x "$package" "$apt/unpacked"
    done
    mv "$apt/unpacked" "$folder"
    rm -rf "$apt"
}
