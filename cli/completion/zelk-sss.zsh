#compdef zelk-sss
# Completion of the command zelk-sss for zsh. Commands, options and their choices are read from the
# command's own --help, methods and their parameters from `zelk-sss methods`.

# What --help says that an option takes: its type and choices, such as TEXT:{on,off,auto}=auto, and
# "..." if it takes several words; nothing for a flag.
_zelk_sss_takes() {
  sed -nE "s/^ +(-[a-z],)?$1 ([^ ]+( \.\.\.)?).*/\2/p; s/^ +$1,--[a-z0-9-]+ ([^ ]+( \.\.\.)?).*/\1/p" <<<$help
}

# Parameters of the method that the line names so far, each with its "=".
_zelk_sss_parameters() {
  local method=NULL
  local -i i=${line[(I)--method]}
  (( i > 0 && i < ${#line} )) && method=$line[i+1]
  $command methods 2>/dev/null | awk -v method=$method '/^[A-Z]/ {on = $1 == method} on && /^ / {print $1 "="}'
}

# Completes the value of an option of `zelk-sss $route`.
_zelk_sss_value() {
  case "$route $option" in
    *" --method") compadd -- ${(f)"$($command methods 2>/dev/null | grep -oE '^[A-Z]+')"} ;;
    *" --param") compadd -S '' -- ${(f)"$(_zelk_sss_parameters)"} ;;
    *" --tf" | *" --responses") _files -g '*.sofa' ;;
    *" --sources") _files -g '*.(json|csv|rttm)' ;;
    *" --microphones") _files -g '*.json' ;;
    *" --array") compadd -- ${(f)"$($command arrays 2>/dev/null | cut -d' ' -f1)"} ;;
    "separate -o" | "separate --output") _files -/ ;;
    "report -o" | "report --output" | "separate --report") _files -g '*.html' ;;
    "mix -o" | "mix --output") _files -g '*.wav' ;;
    *" --title" | *" --band" | *" --duration") ;;
    *" --dry" | *" --reference" | *" --estimate" | *" --mixture" | *" --noise-recording" | *" --tracks" | *" -o" | \
      *" --output") _files ;;
    *)
      case $takes in
        *"{"*"}"*) compadd -- ${(s:,:)${${takes#*\{}%%\}*}} ;;
        BOOLEAN*) compadd -- true false ;;
      esac
      ;;
  esac
}

# Completes an argument that belongs to no option.
_zelk_sss_argument() {
  case "$route" in
    "" | tfdb) compadd -- ${(f)"$(sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p' <<<$help)"} ;;
    mix | evaluate | scene) _files -g '*.json' ;;
    arrays) (( arguments > 0 )) || compadd -- ${(f)"$($command arrays 2>/dev/null | cut -d' ' -f1)"} ;;
    corpus) if (( arguments > 0 )); then _files; else compadd -- mix score separate; fi ;;
    tfdb\ *) _files -g '*.sofa' ;;
    run) if (( arguments > 0 )); then _files; else _files -g '*.n'; fi ;;
    live | methods | score) ;;
    *) _files ;;
  esac
}

_zelk_sss() {
  local command=${(e)words[1]/#\~\//$HOME/} word option="" help takes=""
  local -a line route
  local -i arguments=0

  # The words so far, with --option=value as two.
  for word in "${(@)words[2,CURRENT-1]}"; do
    if [[ $word == --*=* ]]; then line+=("${word%%=*}" "${word#*=}"); else line+=("$word"); fi
  done
  if [[ $PREFIX == --*=* ]]; then
    line+=("${PREFIX%%=*}")
    compset -P 1 '*='
  fi

  # The sub-command, and the last option before the word.
  for word in "${(@)line}"; do
    if [[ $word == -* ]]; then option=$word
    elif (( ${#route} == 0 )) || [[ "$route" == tfdb ]]; then route+=("$word")
    else arguments+=1; fi
  done

  # What goes through corpora needs the Python package to tell of its options.
  help=$($command $route --help 2>/dev/null) || [[ "$route" == corpus ]] || return
  [[ -n $option ]] && takes=$(_zelk_sss_takes $option)
  if [[ -n $takes && $line[-1] == "$option" ]]; then _zelk_sss_value
  elif [[ $PREFIX == -* ]]; then compadd -- ${(f)"$(sed -nE 's/^ +(-[a-z],)?(--[a-z0-9-]+).*/\2/p' <<<$help)"}
  elif [[ $takes == *" ..." ]]; then _zelk_sss_value
  else _zelk_sss_argument; fi
}

_zelk_sss "$@"
