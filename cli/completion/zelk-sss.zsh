#compdef zelk-sss
# Completion of the command zelk-sss for zsh. Commands, options and their choices are read from the
# command's own --help, methods from `zelk-sss methods`.

_zelk_sss() {
  local command=${words[1]} word option="" help takes
  local -a route offers
  for word in ${words[2,CURRENT-1]}; do
    if [[ $word == -* ]]; then
      option=$word
    elif (( ${#route} == 0 )) || [[ ${#route} == 1 && $route[1] == tfdb ]]; then
      route+=$word
    fi
  done
  help=$($command $route --help 2>/dev/null) || { _files; return }
  # What the option before the word takes, such as TEXT:{on,off,auto}=auto; nothing for a flag.
  if [[ $words[CURRENT-1] == -* ]]; then
    takes=$(sed -nE "s/^ +(-[a-z],)?$option ([^ ]+).*/\2/p; s/^ +$option,--[a-z0-9-]+ ([^ ]+).*/\1/p" <<<$help)
  fi
  if [[ -n $takes ]]; then
    case "$option $takes" in
      --method\ *) offers=(${(f)"$($command methods 2>/dev/null | grep -oE '^[A-Z]+')"}) ;;
      --tf\ *|--responses\ *) _files -g '*.sofa'; return ;;
      --sources\ *|--microphones\ *) _files -g '*.json'; return ;;
      *"{"*"}"*) offers=(${(s:,:)${${takes#*\{}%%\}*}}) ;;
      *\ BOOLEAN*) offers=(true false) ;;
      *) _files; return ;;
    esac
    compadd -a offers
  elif [[ $words[CURRENT] == -* ]]; then
    offers=(${(f)"$(sed -nE 's/^ +(-[a-z],)?(--[a-z0-9-]+).*/\2/p' <<<$help)"})
    compadd -a offers
  elif (( ${#route} == 0 )) || [[ $route == tfdb ]]; then
    offers=(${(f)"$(sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p' <<<$help)"})
    compadd -a offers
  else
    _files
  fi
}

_zelk_sss "$@"
