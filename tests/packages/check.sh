#!/usr/bin/env bash
# Builds the Debian packages, unpacks them into a scratch root and uses them from there as a user would: the tool, a
# program that finds the library in each of three ways, the Python module. All must give the same result and state the
# same version.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=$PWD/build/ci/packages
root=$out/root
pair=(examples/data/hippo1.ply examples/data/hippo2.ply)
jobs=$(nproc)
version=$(sed -n 's/#define VOALGO_VERSION "\(.*\)"/\1/p' include/VoAlgorithms/version.h)

say() { echo "-- $*"; }
fail() { echo "check.sh: $*" >&2; exit 1; }

rm -rf "$out"
mkdir -p "$root"
say "building packages"
cmake --preset package >/dev/null
cmake --build --preset package -j "$jobs" >/dev/null
(cd build/package && cpack -B "$out" >"$out/cpack.log") || { cat "$out/cpack.log"; exit 1; }
for package in libvoalgorithms1 libvoalgorithms-dev voalgo-tools python3-voalgorithms; do
    dpkg -x "$out/$package"_*.deb "$root"
    [[ -s $root/usr/share/doc/$package/copyright ]] || fail "$package carries no licence"
done
libdir=$(dirname "$(find "$root/usr" -name 'libVoAlgorithms.so')")
export LD_LIBRARY_PATH=$libdir PKG_CONFIG_PATH=$libdir/pkgconfig

say "installing without packages"
prefix=$out/prefix
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
cmake --install build/release --prefix "$prefix" >/dev/null
env -u LD_LIBRARY_PATH "$prefix/bin/voalgo" info

say "running the tool"
"$root/usr/bin/voalgo" register "${pair[@]}" --quiet --out "$out/result"
[[ -s $out/result/pose.txt ]]

say "a program by find_package, by pkg-config and by add_subdirectory"
cmake -S tests/packages -B "$out/found" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" | tee "$out/found.log" | grep 'found version'
cmake --build "$out/found" >/dev/null
mkdir -p "$out/pkg"
cp examples/sample_scan.h "$out/pkg/"
cp examples/register.cpp "$out/pkg/app.cpp"
(
    cd "$out/pkg"
    g++ -std=c++20 app.cpp -o app $(pkg-config --cflags --libs voalgorithms)
)
cmake -S tests/packages -B "$out/sub" -G Ninja -DSOURCE_DIR="$PWD" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$out/sub" -j "$jobs" --target consumer >/dev/null
[[ ! -e $out/sub/voalgorithms/tests ]] || fail "a host's build brings our tests along"
"$out/found/consumer" "${pair[@]}" | tee "$out/example.txt"
"$out/pkg/app" "${pair[@]}" | diff "$out/example.txt" -
env -u LD_LIBRARY_PATH "$out/sub/consumer" "${pair[@]}" | diff "$out/example.txt" -

say "the Python module"
python_dir=$(dirname "$(find "$root/usr/lib/python3" -type d -name voalgorithms)")
python_version=$(PYTHONPATH=$python_dir /usr/bin/python3 -c 'import voalgorithms; print(voalgorithms.__version__)')

say "a processor that lacks instructions: named, not an illegal instruction"
lacks='the processor lacks instructions that this build uses: AVX, .*AVX2'
status=0
qemu-x86_64 -cpu Nehalem "$root/usr/bin/voalgo" --version 2>"$out/processor.txt" || status=$?
[[ $status == 69 ]] && grep -q "^VoAlgorithms: error: $lacks" "$out/processor.txt" || fail "the tool ends with $status"
PYTHONPATH=$python_dir qemu-x86_64 -cpu Nehalem /usr/bin/python3 -c 'import voalgorithms' 2>"$out/processor.txt" || true
grep -q "^ImportError: voalgorithms: $lacks" "$out/processor.txt" || fail "the Python module does not say what is missing"
qemu-x86_64 -cpu max "$root/usr/bin/voalgo" --version

say "versions"
same() { # WHAT VERSION
    [[ $2 == "$version" ]] || fail "$1 states version '$2', the header '$version'"
    echo "   $2  $1"
}
parts=$(sed -n 's/#define VOALGO_VERSION_[A-Z]* \([0-9]*\)/\1/p' include/VoAlgorithms/version.h | paste -sd.)
same "the header's parts" "$parts"
same "CMake package" "$(sed -n 's/-- found version //p' "$out/found.log")"
same "pkg-config" "$(pkg-config --modversion voalgorithms)"
same "Debian package" "$(dpkg-deb -f "$out"/libvoalgorithms1_*.deb Version)"
same "tool" "$("$root/usr/bin/voalgo" --version | sed 's/^voalgo //')"
same "Python module" "$python_version"
same "changelog" "$(sed -n 's/^## \([0-9.]*\).*/\1/p' CHANGELOG.md | head -1)"
