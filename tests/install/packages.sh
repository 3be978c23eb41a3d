#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the Debian packages of a build, asks lintian about them, installs them into an empty root and runs what they
# brought there: packages.sh BUILD WORK-DIRECTORY
set -euo pipefail
build=$1 work=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
. "$root/tests/install/page.sh"
rm -rf "$work"
mkdir -p "$work"
cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B . >cpack.log 2>&1 || { cat cpack.log >&2; fail "cpack"; }
revision=$(sed -n '1s/.*(\(.*\)).*/\1/p' "$root/debian/changelog")
grep -qxF "## $revision" "$root/CHANGELOG.md" || fail "CHANGELOG.md has no section $revision"
for name in libkelnn1 libkelnn-dev kelnn kelnn-models libkelnn-doc; do
  compgen -G "${name}_${revision}_*.deb" >/dev/null || fail "there is no package $name of $revision"
done
said=$(lintian --tag-display-limit 0 --fail-on none --allow-root ./*.deb 2>&1 | grep -v '^running with root' || true)
[ -z "$said" ] || fail "lintian says:"$'\n'"$said"

# An empty root, without the packages that ours depend on.
mkdir -p empty/var/lib/dpkg/{info,updates}
touch empty/var/lib/dpkg/{status,available}
dpkg --root="$PWD/empty" --force-depends --force-script-chrootless --force-not-root --log="$work/dpkg.log" \
  --install ./*.deb >install.log 2>&1 || { cat install.log >&2; fail "dpkg --install"; }
LD_LIBRARY_PATH=$(dirname "$(find "$work/empty" -name libkelnn.so.1)")
export LD_LIBRARY_PATH HOME=$work
unset KELNN_MODELS XDG_DATA_HOME
kelnn=$work/empty/usr/bin/kelnn
"$kelnn" doctor >doctor.log 2>&1 || { cat doctor.log >&2; fail "kelnn doctor"; }
"$kelnn" faces "$root/examples/pictures/both_faces.png" 2>log | grep -qF ": 2 found" || { cat log >&2; fail "kelnn faces"; }
[ -z "$(ldd "$kelnn" | grep -vF "$work" | grep -F "$build")" ] || fail "the installed program takes libraries from the build"
zcat empty/usr/share/man/man1/kelnn.1.gz | grep -q '^.SS faces' || fail "the manual page does not know kelnn faces"
flags=$(PKG_CONFIG_LIBDIR=$(dirname "$(find "$work/empty" -name kelnn.pc)") pkg-config --cflags --libs kelnn)
read -r -a flags <<<"$flags"
cc -std=c99 -o motion "$root/tests/install/motion.c" "${flags[@]}"
./motion | grep -qxF "moved 1" || fail "a program in C"
[ -s empty/usr/share/doc/libkelnn-doc/html/index.html ] || fail "the reference is not there"
if compgen -G "python3-kelnn_${revision}_*.deb" >/dev/null; then
  (cd / && PYTHONPATH=$work/empty/usr/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1 KELNN_MODELS=$work/empty/usr/share/kelnn/models \
    bash -ec "$(page Python | grep doctor)") >doctor.log 2>&1 && grep -qF "$work" doctor.log || { cat doctor.log >&2; fail "Python"; }
fi
for file in zsh/vendor-completions/_kelnn fish/vendor_completions.d/kelnn.fish kelnn/output.schema.json; do
  [ -s "empty/usr/share/$file" ] || fail "there is no $file"
done
bash -c '. empty/usr/share/bash-completion/completions/kelnn; COMP_WORDS=(kelnn faces --dr); COMP_CWORD=2; _kelnn empty/usr/bin/kelnn
  [ "${COMPREPLY[*]}" = --draw ]' || fail "--dr is not completed to --draw"
