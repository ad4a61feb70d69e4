# shellcheck shell=bash
# Completion for molvanectl. What it offers is read from the program's own help, and the task identifiers from its
# list of tasks, so that there is no second list to keep. It never asks the helper.

# Reads the help of the command that the given words name into the caller's variables: `depth` (words of the command's
# name), `commands`, `arguments` (their placeholders), `values` (placeholder by option, empty for a switch).
_molvanectl_read_help() {
  local line section=
  while IFS= read -r line; do
    if [[ $line == 'Usage: '* ]]; then
      local -a usage
      read -ra usage <<<"${line%%' [OPTION]'*}"
      depth=$((${#usage[@]} - 2))
    elif [[ $line =~ ^([A-Z][a-z\ ]+):$ ]]; then
      section=${BASH_REMATCH[1]}
    elif [[ $section == Commands && $line =~ ^\ \ ([a-z-]+) ]]; then
      commands+=("${BASH_REMATCH[1]}")
    elif [[ $section == Arguments && $line =~ ^\ \ ([A-Z.]+) ]]; then
      arguments+=("${BASH_REMATCH[1]}")
    elif [[ $section == Options && $line =~ ^\ +(-.,\ )?(--[a-z-]+)(\ ([A-Z]+))?(\ \ |$) ]]; then
      values[${BASH_REMATCH[2]}]=${BASH_REMATCH[4]}
    fi
  done < <("$@" --help 2>/dev/null)
}

# The names of the whole disks that there are devices of.
_molvanectl_disks() {
  local device
  for device in /dev/disk*; do
    if [[ $device =~ ^/dev/(disk[0-9]+)$ ]]; then echo "${BASH_REMATCH[1]}"; fi
  done
}

_molvanectl() {
  local program=$1 current=$2 previous=$3
  local -a words=() commands=() arguments=()
  local -A values=()
  local depth=0 index

  # Readline makes a word of the equals sign in --option=VALUE.
  if [[ $current == = ]]; then
    current=''
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi

  for ((index = 1; index < COMP_CWORD; index++)); do
    if [[ ${COMP_WORDS[index]} != -* ]]; then words+=("${COMP_WORDS[index]}"); fi
  done
  _molvanectl_read_help "$program" "${words[@]}"

  # Which words are values of options is known only now.
  local given=0 ended=''
  for ((index = 1; index < COMP_CWORD; index++)); do
    local word=${COMP_WORDS[index]}
    if [[ -n $ended || $word != -* ]]; then
      given=$((given + 1))
    elif [[ $word == -- ]]; then
      ended=yes
    elif [[ -n ${values[$word]:-} ]]; then
      index=$((index + 1))
      if [[ ${COMP_WORDS[index]:-} == = ]]; then index=$((index + 1)); fi
    fi
  done

  local kind=''
  if [[ -z $ended && -n $previous && -n ${values[$previous]:-} ]]; then
    kind=${values[$previous]}
  elif [[ -z $ended && $current == -* ]]; then
    kind=OPTION
  elif [[ $given -eq $depth && ${#commands[@]} -gt 0 ]]; then
    kind=COMMAND
  elif [[ ${#arguments[@]} -gt 0 && $given -ge $depth ]]; then
    local -i place=$((given - depth)) last=$((${#arguments[@]} - 1))
    if ((place <= last)); then
      kind=${arguments[place]%...}
    elif [[ ${arguments[last]} == *... ]]; then
      kind=${arguments[last]%...}
    else
      kind=NOTHING
    fi
  fi

  COMPREPLY=()
  case ${kind:-OPTION} in
    COMMAND) mapfile -t COMPREPLY < <(compgen -W "${commands[*]}" -- "$current") ;;
    OPTION) mapfile -t COMPREPLY < <(compgen -W "${!values[*]}" -- "$current") ;;
    ID) mapfile -t COMPREPLY < <(compgen -W "$("$program" task list --ids 2>/dev/null)" -- "$current") ;;
    DISK) mapfile -t COMPREPLY < <(compgen -W "$(_molvanectl_disks)" -- "$current") ;;
    PATH | IMAGE | DESTINATION | INSTALLER | VOLUME)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
  esac
}

complete -F _molvanectl molvanectl
