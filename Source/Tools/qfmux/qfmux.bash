# SPDX-License-Identifier: MIT
# Completion of qfmux's command line for bash.
_qfmux() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local options='-o --output --format -y --overwrite --verify --sync --dry-run --no-video --no-audio --no-subtitles --no-data
        --tracks --aspect --duration --encode --video-codec --audio-codec --quality --video-bitrate --audio-bitrate
        --video-options --audio-options --deinterlace --size --video-filter --audio-filter -q --quiet -v --verbose --json --progress --h264 --force-codec --record --plugin
        --version --help'
    [ "${COMP_WORDS[1]}" != formats ] || [ "$COMP_CWORD" = 1 ] || options='--json --plugin --help'
    case $previous in
    --format) mapfile -t COMPREPLY < <(compgen -W 'mkv hmkv mka webm' -- "$current") ;;
    --h264) mapfile -t COMPREPLY < <(compgen -W 'H264 N264 A264 I264 havc' -- "$current") ;;
    --verify) mapfile -t COMPREPLY < <(compgen -W 'full decode none' -- "$current") ;;
    --progress) mapfile -t COMPREPLY < <(compgen -W 'auto bar json none' -- "$current") ;;
    --encode) mapfile -t COMPREPLY < <(compgen -W 'auto video audio all none' -- "$current") ;;
    --video-codec) mapfile -t COMPREPLY < <(compgen -W 'h264 havc vp8 mpeg4 xvid mpeg2 mpeg1' -- "$current") ;;
    --audio-codec) mapfile -t COMPREPLY < <(compgen -W 'aac ac3 vorbis mp3 mp2 dts pcm' -- "$current") ;;
    --tracks | --aspect | --duration | --quality | --size | --*-bitrate | --*-options | --*-filter) COMPREPLY=() ;;
    *)
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            if [ "$COMP_CWORD" = 1 ]; then
                mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W 'formats mux' -- "$current")
            fi
        fi
        ;;
    esac
}
complete -F _qfmux qfmux
