# A build that shows how far it is. To be sourced.

# counted_build LOG FOLDER: builds what is in FOLDER and adds all that the build prints to LOG. Its
# counter goes to standard error: on a terminal in one line that counts on, elsewhere a line for each tenth.
# Needs pipefail; false if the build fails.
counted_build() { cmake --build "$2" 2>&1 | tee -a "$1" | show_counter; }

show_counter() {
  local line shown=-1
  while IFS= read -r line; do
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    if [ -t 2 ]; then
      printf '\r\033[K%.79s' "$line" >&2
    elif [ $((10 * BASH_REMATCH[1] / BASH_REMATCH[2])) -gt "$shown" ]; then
      shown=$((10 * BASH_REMATCH[1] / BASH_REMATCH[2]))
      echo "$line" >&2
    fi
  done
  if [ -t 2 ]; then printf '\r\033[K' >&2; fi
}
