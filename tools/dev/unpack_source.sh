# Called by mmdebstrap in usr/src of a new root: unpack_source.sh PACKAGE puts its upstream sources into PACKAGE/.
set -eu
export APT_CONFIG="$MMDEBSTRAP_APT_CONFIG"
apt-get --quiet --quiet source --download-only "$1"
mkdir "$1"
tar --extract --strip-components=1 --directory="$1" --file="$(ls "$1"_*.orig.tar.*[!c])"
echo "$(ls "$1"_*.dsc)" >>../../etc/toolchain-versions
rm "$1"_*
