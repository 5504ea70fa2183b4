# sandbox.sh SOURCE_DIR LIBRARY MUTATED_LIBRARY PROGRAM [ARGUMENT...]
#
# Runs a test program with a mutated library in place of the built one, where neither can do harm: in namespaces of its own
# that sandbox.py makes, nothing can be written but a private /tmp, /var/tmp and /dev/shm, there is no network but a
# loopback interface, and when the program ends or is ended, whatever it started ends too. Ends with 97 when it cannot be
# set up.
set -Eeu
trap 'exit 97' ERR
source_dir=$1 library=$2 mutated=$3
shift 3

# Each file system of the machine's. In a user namespace the other options must stay as they are.
while read -r _ folder kind options _; do
  case $kind in
    proc | sysfs | cgroup* | dev* | mqueue) continue ;;
  esac
  kept=
  for option in ${options//,/ }; do
    case $option in
      nosuid | nodev | noexec | noatime | relatime) kept+=,$option ;;
    esac
  done
  mount -o "remount,bind,ro$kept" "$(printf '%b' "$folder")"
done </proc/self/mounts

# A checkout below /tmp stays in sight, where it is.
scratch=/var/tmp
mount -t tmpfs -o size=256m,mode=1777 tmpfs "$scratch"
for folder in "$source_dir" "${mutated%/*}"; do
  case $folder in
    /tmp/*)
      mkdir -p "$scratch${folder#/tmp}"
      mount --rbind "$folder" "$scratch${folder#/tmp}"
      ;;
  esac
done
mount --rbind "$scratch" /tmp
mount -t tmpfs -o size=256m,mode=1777 tmpfs "$scratch"
mount -t tmpfs -o size=256m,mode=1777 tmpfs /dev/shm
mount --bind "$mutated" "$library"
ip link set lo up multicast on

# The units are blocks, blocks of 1 KiB, KiB, processes and threads of the user, seconds. What cannot be set is lower yet.
for limit in '-c 0' '-f 16777216' '-v 8388608' '-u 2000' '-t 120'; do
  ulimit $limit 2>/dev/null || true
done
cd /tmp
unset XDG_RUNTIME_DIR
export HOME=/tmp TMPDIR=/tmp
# As an ordinary user again: root in a namespace with one user cannot become another, as some tests do.
exec unshare --user --map-user=1000 --map-group=1000 "$@"
