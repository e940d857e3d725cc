# SPDX-License-Identifier: MIT
# Completion of qfcheck's command line for bash.
_qfcheck() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    case $previous in
    --only) mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --list 2>/dev/null | sed 's/ .*//')" -- "$current") ;;
    --timeout) COMPREPLY=() ;;
    *)
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W '--json --junit --list --only --timeout --version --help' -- "$current")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        ;;
    esac
}
complete -F _qfcheck qfcheck
