# Completion of the command zelk-sss for bash. Commands, options and their choices are read from the
# command's own --help, methods and their parameters from `zelk-sss methods`.

# Sets COMPREPLY to those of the given words that begin with what was typed.
_zelk_sss_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

# The same with files of this ending, and folders on the way to them.
_zelk_sss_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -X "!*.$1" -- "$cur"; compgen -d -- "$cur")
}

# Nothing can be offered; without this the shell would offer file names.
_zelk_sss_nothing() {
  compopt +o default +o bashdefault 2>/dev/null
}

# What --help says that an option takes: its type and choices, such as TEXT:{on,off,auto}=auto, and
# "..." if it takes several words; nothing for a flag.
_zelk_sss_takes() {
  sed -nE "s/^ +(-[a-z],)?$1 ([^ ]+( \.\.\.)?).*/\2/p; s/^ +$1,--[a-z0-9-]+ ([^ ]+( \.\.\.)?).*/\1/p" \
    <<<"$help"
}

# Parameters of the method that the line names so far, each with its "=".
_zelk_sss_parameters() {
  local method=NULL i
  for ((i = 1; i < ${#words[@]} - 1; i++)); do
    [ "${words[i]}" = --method ] && method=${words[i + 1]}
  done
  "$command" methods 2>/dev/null |
    awk -v method="$method" '/^[A-Z]/ {on = $1 == method} on && /^ / {print $1 "="}'
}

# Names of microphone arrays.
_zelk_sss_arrays() {
  "$command" arrays 2>/dev/null | cut -d' ' -f1
}

# Completes the value of an option of `zelk-sss $path`.
_zelk_sss_value() {
  local option=$1 takes=$2
  case "$path $option" in
    *" --method") _zelk_sss_words "$("$command" methods 2>/dev/null | grep -oE '^[A-Z]+')" ;;
    *" --param")
      compopt -o nospace 2>/dev/null
      _zelk_sss_words "$(_zelk_sss_parameters)"
      ;;
    *" --tf" | *" --responses") _zelk_sss_files sofa ;;
    *" --sources")
      _zelk_sss_files json
      mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -X '!*.csv' -- "$cur"; compgen -f -X '!*.rttm' -- "$cur")
      ;;
    *" --microphones") _zelk_sss_files json ;;
    *" --array") _zelk_sss_words "$(_zelk_sss_arrays)" ;;
    "separate -o" | "separate --output")
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      ;;
    "report -o" | "report --output" | "separate --report") _zelk_sss_files html ;;
    "mix -o" | "mix --output") _zelk_sss_files wav ;;
    *" --title" | *" --band" | *" --duration") _zelk_sss_nothing ;;
    *" --dry" | *" --reference" | *" --estimate" | *" --mixture" | *" --noise-recording" | *" --tracks" | *" -o" | \
      *" --output") ;; # any file, as the shell does by itself
    *)
      case "$takes" in
        *"{"*"}"*)
          takes=${takes#*\{}
          takes=${takes%%\}*}
          _zelk_sss_words "${takes//,/ }"
          ;;
        BOOLEAN*) _zelk_sss_words "true false" ;;
        *) _zelk_sss_nothing ;;
      esac
      ;;
  esac
}

# Completes an argument that belongs to no option.
_zelk_sss_argument() {
  case "$path" in
    "" | tfdb) _zelk_sss_words "$(sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p' <<<"$help")" ;;
    mix | evaluate | scene) _zelk_sss_files json ;;
    corpus) [ "$arguments" -gt 0 ] || _zelk_sss_words "mix score separate" ;;
    arrays) [ "$arguments" -gt 0 ] || _zelk_sss_words "$(_zelk_sss_arrays)" ;;
    tfdb\ *) _zelk_sss_files sofa ;;
    run) [ "$arguments" -gt 0 ] || _zelk_sss_files n ;;
    live | methods | score) _zelk_sss_nothing ;;
  esac
}

_zelk_sss() {
  local command=${1/#\~/${HOME-}} cur path="" arguments=0 option="" help takes i
  local -a words=()
  COMPREPLY=()

  # The words so far, with --option=value as two.
  for ((i = 0; i <= COMP_CWORD; i++)); do
    [ "${COMP_WORDS[i]}" = = ] && [ "$i" -lt "$COMP_CWORD" ] && continue
    words+=("${COMP_WORDS[i]}")
  done
  cur=${words[-1]}
  [ "$cur" = = ] && cur=""

  # The command and its sub-command, and the last option before the word.
  for ((i = 1; i < ${#words[@]} - 1; i++)); do
    case "${words[i]}" in
      -*) option=${words[i]} ;;
      *)
        if [ -z "$path" ]; then path=${words[i]}
        elif [ "$path" = tfdb ]; then path="tfdb ${words[i]}"
        else arguments=$((arguments + 1)); fi
        ;;
    esac
  done

  # What goes through corpora needs the Python package to tell of its options.
  # shellcheck disable=SC2086  # the path is one word or two
  help=$("$command" $path --help 2>/dev/null) || [ "$path" = corpus ] || return
  takes=""
  [ -n "$option" ] && takes=$(_zelk_sss_takes "$option")
  if [ "$path" = run ] && [ "$arguments" -gt 0 ]; then
    return # the network's own words: any file
  elif [ -n "$takes" ] && [ "${words[-2]}" = "$option" ]; then
    _zelk_sss_value "$option" "$takes"
  elif [[ $cur == -* ]]; then
    _zelk_sss_words "$(sed -nE 's/^ +(-[a-z],)?(--[a-z0-9-]+).*/\2/p' <<<"$help")"
  elif [[ $takes == *" ..." ]]; then
    _zelk_sss_value "$option" "$takes"
  else
    _zelk_sss_argument
  fi
}

complete -o default -o bashdefault -F _zelk_sss zelk-sss
