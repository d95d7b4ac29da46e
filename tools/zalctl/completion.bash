# bash completion for zalctl. Commands and options come from the program's own help.

_zalctl() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    if [[ ${COMP_WORDS[i]} != -* ]]; then
      command=${COMP_WORDS[i]}
      break
    fi
  done

  local -a words=()
  case $before in
    --config | --answers | --script | --record | --control)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --url | --agent)
      words=(file:///tmp/zalIPC.sock)
      ;;
    --kind)
      words=(event response request notify subscribe config get-config gateway-request gateway-response empty malformed)
      ;;
    *)
      if [[ -z $command ]]; then
        mapfile -t words < <("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]\{1,\}\) .*/\1/p')
      elif [[ $word == -* ]]; then
        mapfile -t words < <("${COMP_WORDS[0]}" "$command" --help 2>/dev/null |
          sed -n '/^Options:/,/^$/{s/^  -[a-z],//;s/^ *\(--[a-z-]*\).*/\1/p}')
      elif [[ $command == call || $command == bench ]]; then
        # What a running agent knows of: services, then the methods of one.
        local service=''
        for ((++i; i < COMP_CWORD; ++i)); do [[ ${COMP_WORDS[i]} == -* ]] || service=${COMP_WORDS[i]}; done
        mapfile -t words < <("${COMP_WORDS[0]}" list 2>/dev/null |
          awk -v service="$service" '/^  / { if (service == "") print $1; else if ($1 == service) print $2 }' | sort -u)
      else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
      fi
      ;;
  esac
  # Not by compgen -W, which would expand them.
  for i in "${words[@]}"; do
    if [[ $i == "$word"* ]]; then COMPREPLY+=("$i"); fi
  done
}
complete -F _zalctl zalctl
