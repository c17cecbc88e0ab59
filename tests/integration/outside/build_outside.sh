#!/usr/bin/env bash
# Installs into a fresh prefix, moves the prefix, copies the example provider, the client and the
# reader of documents out of the tree, builds them twice (pkg-config and find_package), runs each client
# with each provider loaded through a settings file, and each reader on the installed documents.
# Usage: build_outside.sh SOURCE-TREE BUILD-TREE CMAKE
set -euo pipefail
source_tree=$1 build_tree=$2 cmake=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset ZN_SETTINGS LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH

"$cmake" --install "$build_tree" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$work/prefix"  # nothing may depend on where it was installed
prefix=$work/prefix
cp -r "$source_tree/providers/example" "$work/example"
cp -r "$source_tree/tests/integration/outside/client" "$work/client"
cp -r "$source_tree/tests/integration/outside/reader" "$work/reader"

for file in share/znmira/settings.toml lib/libznmira.so.3 include/zn/znmira.h \
  lib/znmira/providers/libexample.so include/zn/formalization_dtd.h \
  share/znmira/schemas/mira_formalization.dtd share/znmira/schemas/znsvc_alerts.xml \
  lib/znmira/catalogs/znmira.de.txt lib/znmira/catalogs/hostinv.en.txt bin/znctl bin/znsvc \
  share/znmira/access.example.toml share/doc/znmira/znsvc.md; do
  [ -e "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done

# The service as a package has it: unit, logon rules and folders where the host looks, naming the
# places of the prefix, whatever folder the files were staged in.
echo "--- package"
DESTDIR=$work/staged "$cmake" --install "$build_tree" --prefix /usr >"$work/staged.log"
unit=$work/staged/usr/lib/systemd/system/znsvc.service
grep -qx 'ExecStart=/usr/bin/znsvc' "$unit"
grep -qx 'Documentation=file:/usr/share/doc/znmira/znsvc.md' "$unit"
grep -q '^d /usr/lib/znmira/Logs ' "$work/staged/usr/lib/tmpfiles.d/znsvc.conf"
grep -q '^auth ' "$work/staged/usr/lib/pam.d/znsvc"
grep -qx 'InstallDir = "/usr/lib/znmira"' "$work/staged/usr/share/znmira/settings.toml"

# The sample settings are good, with the example of access lists behind them; what they name is
# there, wherever the prefix went.
cat "$prefix/share/znmira/settings.toml" "$prefix/share/znmira/access.example.toml" |
  sed "s|$work/first|$prefix|" >"$work/service.toml"
"$prefix/bin/znsvc" --check --settings "$work/service.toml"

# Runs a client with a settings file of its own that loads one provider.
Run() {  # Run NAME CLIENT PROVIDER-LIBRARY
  local home=$work/run-$1
  mkdir -p "$home"
  printf '%s\n' "InstallDir = \"$home\"" '[ProviderGroup]' '[Providers.example]' \
    "ImageFile = \"$3\"" >"$home/settings.toml"
  echo "--- $1"
  ZN_SETTINGS=$home/settings.toml "$2"
}

echo "--- pkg-config"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
flags=$(pkg-config --cflags znmira) libraries=$(pkg-config --libs znmira)
[ "$(pkg-config --modversion znmira)" = 3.0.0 ]
mkdir "$work/plain"
# shellcheck disable=SC2086  # the flags are words
{
  g++ -std=c++20 -O1 -fPIC -shared -Wall -Wextra -Werror $flags "$work/example/example.cpp" \
    -o "$work/plain/libexample.so" $libraries -Wl,-z,defs
  gcc -std=c11 -O1 -Wall -Wextra -Wpedantic -Werror $flags "$work/client/client.c" \
    -o "$work/plain/client" $libraries -Wl,-rpath,"$prefix/lib"
}
# The documents that are installed, and the example's, whose type nobody has told where to find.
ReadDocuments() {  # ReadDocuments READER
  local schemas=$prefix/share/znmira/schemas types
  types=$("$1" "$schemas/znsvc_types.xml" "$schemas/hostinv_types.xml" "$work/example/lamp_types.xml")
  grep -qx KELD_Extension <<<"$types"
  grep -qx HostInv_Partition <<<"$types"
  grep -qx EXAMPLE_Lamp <<<"$types"
}
# shellcheck disable=SC2046  # the flags are words
g++ -std=c++17 -O1 -Wall -Wextra -Werror $(pkg-config --cflags znmira-formalization) \
  "$work/reader/reader.cpp" -o "$work/plain/reader" $(pkg-config --libs znmira-formalization) \
  -Wl,-rpath,"$prefix/lib"
ReadDocuments "$work/plain/reader"
Run pkg-config "$work/plain/client" "$work/plain/libexample.so"

echo "--- find_package"
for folder in example client reader; do
  "$cmake" -S "$work/$folder" -B "$work/built-$folder" -DCMAKE_PREFIX_PATH="$prefix" \
    >"$work/$folder.log" 2>&1 && "$cmake" --build "$work/built-$folder" >>"$work/$folder.log" 2>&1 ||
    { cat "$work/$folder.log"; exit 1; }
done
ReadDocuments "$work/built-reader/reader"
Run find-package "$work/built-client/client" "$work/built-example/libexample.so"

# The installed provider, by its bare name, from the providers folder of the installation.
sed "s|^InstallDir.*|InstallDir = \"$prefix/lib/znmira\"|; /^\[Providers/,\$d" \
  "$prefix/share/znmira/settings.toml" >"$work/installed.toml"
printf '%s\n' '[Providers.example]' 'ImageFile = "example"' >>"$work/installed.toml"
echo "--- installed provider"
ZN_SETTINGS=$work/installed.toml "$work/built-client/client"
