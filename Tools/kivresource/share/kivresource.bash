# Completion of kivresource for bash.

_kivresource() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local commands='load update revalidate watch list audit clean trim serve session gallery'
  local options='--root --main --reserve --resources --json --help'
  local word command=
  COMPREPLY=()
  case $previous in
    --root | --resources)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --headers)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --loaded)
      mapfile -t COMPREPLY < <(compgen -W 'oldest least-shown' -- "$current")
      return
      ;;
    --main | --reserve | --id | --type | --mirror | --interval | --port | --fault) return ;;
  esac
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ " $commands " == *" $word "* ]] && command=$word && break
  done
  case $command in
    load) options+=' --id --type --headers --verbose' ;;
    update) options+=' --headers --verbose' ;;
    revalidate) options+=' --id --type --headers' ;;
    watch) options+=' --mirror --interval --headers' ;;
    list) options+=' --id --type' ;;
    clean) options+=' --dry-run' ;;
    trim) options+=' --loaded --dry-run' ;;
    serve) options+=' --port --fault --quiet' ;;
    '') options+=' --version' ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
  elif [[ $command == serve ]]; then
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  elif [[ $command == load || $command == update || $command == gallery ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

complete -o filenames -F _kivresource kivresource
