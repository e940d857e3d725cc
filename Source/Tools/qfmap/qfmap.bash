# SPDX-License-Identifier: MIT
# Completion of qfmap's command line for bash.
_qfmap() {
    local current=${COMP_WORDS[COMP_CWORD]}
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--output --overwrite --json --version --help' -- "$current")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _qfmap qfmap
