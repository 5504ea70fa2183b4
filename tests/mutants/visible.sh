# visible.sh FOLDER COMMAND [ARGUMENT...]
#
# For root, in a mount namespace that was made for it: runs the command where every user reaches the folder. Of a closed
# folder above it, such as /root, nothing else stays in sight.
set -euo pipefail
folder=$1
shift

closed=
while IFS= read -r -d / name; do
  closed+=$name/
  setpriv --reuid=65534 --regid=65534 --clear-groups test -x "$closed" || break
done <<<"$folder/"

mount --make-rprivate /
mount --rbind "$folder" /mnt
mount -t tmpfs -o mode=755 tmpfs "$closed"
mkdir -p "$folder"
mount --move /mnt "$folder"
cd "$folder"
exec "$@"
