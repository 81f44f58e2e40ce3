# Shared by the scripts: what they need, and how they build. Sourced, not run.

set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
JOBS=${JOBS:-$( nproc )}
export DEBIAN_FRONTEND=noninteractive
# In front of every line of a build: steps done and in all, per cent, time gone.
export NINJA_STATUS="[%f/%t %p %es] "

say() {
   printf '== %s\n' "$*"
}

die() {
   printf '%s: %s\n' "$( basename "$0" )" "$*" >&2
   exit 1
}

as_root() {
   if [ "$( id -u )" = 0 ]; then
      "$@"
   elif command -v sudo > /dev/null; then
      sudo -n env DEBIAN_FRONTEND=noninteractive "$@" || sudo env DEBIAN_FRONTEND=noninteractive "$@"
   else
      die "installing packages needs root or sudo: $*"
   fi
}

# need PACKAGE...: installs the Debian packages among them that are missing.
need() {
   local missing=() package native log
   native=$( dpkg --print-architecture )
   for package in "$@"; do
      # A bare name would also mean the package of a foreign architecture that is there already.
      [[ $package == *:* ]] || package=$package:$native
      dpkg-query -W -f '${db:Status-Status} ${Package}:${Architecture}\n' "${package%:*}" 2> /dev/null |
         grep -qxF -e "installed $package" -e "installed ${package%:*}:all" || missing+=( "$package" )
   done
   if [ ${#missing[@]} = 0 ]; then
      return
   fi
   log=$( mktemp )
   say "installing ${missing[*]}"
   # The lists of packages may be there already; fetch them once if that is not enough.
   if ! as_root apt-get install -y --no-install-recommends "${missing[@]}" < /dev/null > "$log" 2>&1
   then
      say "fetching the lists of packages first"
      as_root apt-get update < /dev/null > "$log" 2>&1 ||
         { tail -20 "$log"; die "apt-get update failed"; }
      as_root apt-get install -y --no-install-recommends "${missing[@]}" < /dev/null > "$log" 2>&1 ||
         { tail -20 "$log"; die "cannot install ${missing[*]}"; }
   fi
   rm -f "$log"
}

# need_for PRESET: what a preset builds with.
need_for() {
   need g++ cmake ninja-build ccache nlohmann-json3-dev libcli11-dev libgtest-dev libgmock-dev
   case $1 in
   m32) need g++-multilib googletest ;;
   bench) need libbenchmark-dev ;;
   fuzz) need clang-19 libclang-rt-19-dev ;;
   bench32)
      dpkg --print-foreign-architectures | grep -qx i386 || as_root dpkg --add-architecture i386
      need g++-multilib libbenchmark-dev:i386
      ;;
   esac
}

# build PRESET [TARGET...]: configures if that is new, and builds.
build() {
   local preset=$1
   shift
   need_for "$preset"
   say "building $preset in build/$preset, $JOBS jobs"
   if [ ! -f "build/$preset/build.ninja" ]; then
      cmake --preset "$preset" > /dev/null
   fi
   cmake --build --preset "$preset" -j "$JOBS" ${1:+--target "$@"}
}
