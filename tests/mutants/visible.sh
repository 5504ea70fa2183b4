# visible.sh FOLDER COMMAND [ARGUMENT...]
#
# Runs the command where every user reaches the folder, which is a checkout: a sandbox for root is that of a user without
# rights. Where a folder above it is closed, as /root is, this takes a mount namespace, in which nothing else of the
# closed one stays in sight.
set -euo pipefail
folder=$1
shift

anybody=(setpriv --reuid=65534 --regid=65534 --clear-groups)
if [ "$(id -u)" -ne 0 ] || "${anybody[@]}" test -r "$folder/tests/mutants/sandbox.sh"; then
  exec "$@"
fi
if [ -z "${KXPAL_MOUNTS_HERE-}" ]; then
  KXPAL_MOUNTS_HERE=yes exec unshare --mount bash "${BASH_SOURCE[0]}" "$folder" "$@"
fi

closed=
while IFS= read -r -d / name; do
  closed+=$name/
  "${anybody[@]}" test -x "$closed" || break
done <<<"$folder/"

mount --make-rprivate /
mount --rbind "$folder" /mnt
mount -t tmpfs -o mode=755 tmpfs "$closed"
mkdir -p "$folder"
mount --move /mnt "$folder"
cd "$folder"
unset KXPAL_MOUNTS_HERE
exec "$@"
