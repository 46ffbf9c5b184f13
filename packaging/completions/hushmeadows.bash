# bash completion for hushmeadows(1)

_hushmeadows_worlds()
{
    # The ids of the worlds the saver finds, as `hushmeadows list` shows them.
    "${COMP_WORDS[0]}" list 2>/dev/null | awk -F'\t' '$1 == "*" || $1 == " " { print $2 }'
}

_hushmeadows_values()
{
    case $1 in
        isMuted | screenSaverAudioEnabled | screenSaverAllDisplays | pixelPerfectScaling | showsMenuBarExtra | welcomeSeen | \
            reviewRequested) echo true false ;;
        screenSaverChosen) echo true false null ;;
        framing) echo fill wholeScene ;;
        launchBehavior) echo showWindow enterAmbientMode ;;
        sleepTimer) echo off after15Minutes after30Minutes after60Minutes ;;
        timeOfDay) echo automatic day night ;;
        libraryTab) echo pixel voxel null ;;
        musicStyle) echo classic studio null ;;
        musicStyleDefault) echo classic studio ;;
        musicVolume | ambienceVolume) echo null ;;
        selectedWorldID) echo null "$(_hushmeadows_worlds)" ;;
    esac
}

_hushmeadows()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="check list play saver install-xscreensaver render-audio settings help"
    local keys="musicVolume ambienceVolume isMuted screenSaverAudioEnabled screenSaverAllDisplays screenSaverChosen
        launchBehavior pixelPerfectScaling framing showsMenuBarExtra selectedWorldID worldMixes favouriteWorldIDs timeOfDay
        sleepTimer welcomeSeen longAmbientSessions reviewRequested libraryTab musicStyle musicStyleDefault"
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "--version --help" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "$commands" -- "$cur"))
        fi
        return
    fi
    local command=${COMP_WORDS[1]}
    # An option's value first.
    case $prev in
        --file | --out) COMPREPLY=($(compgen -f -- "$cur")); compopt -o filenames 2>/dev/null; return ;;
        --framing) COMPREPLY=($(compgen -W "fill wholeScene" -- "$cur")); return ;;
        --phase) COMPREPLY=($(compgen -W "day night" -- "$cur")); return ;;
        --window | --window-id | --seconds | --fade-in) return ;;
    esac
    local options words
    case $command in
        check) options="--media"; COMPREPLY=($(compgen -d -- "$cur")); compopt -o filenames 2>/dev/null ;;
        list) options="--file" ;;
        play) options="--window --window-id --poster-only --framing --no-pixel-perfect" ;;
        saver) options="--root --window-id" ;;
        install-xscreensaver) options="--file" ;;
        render-audio) options="--seconds --out --fade-in --phase" ;;
        settings) options="--file" ;;
        help) ((COMP_CWORD == 2)) && COMPREPLY=($(compgen -W "$commands" -- "$cur")); return ;;
        *) return ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options --help" -- "$cur"))
        return
    fi
    # The words that are not options or their values.
    words=()
    local i
    for ((i = 2; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --file | --out | --framing | --phase | --window | --window-id | --seconds | --fade-in) ((i++)) ;;
            -*) ;;
            *) words+=("${COMP_WORDS[i]}") ;;
        esac
    done
    case $command in
        play | render-audio)
            if ((${#words[@]} == 0)); then
                COMPREPLY=($(compgen -W "$(_hushmeadows_worlds)" -- "$cur") $(compgen -d -- "$cur"))
                compopt -o filenames 2>/dev/null
            fi
            ;;
        settings)
            case ${#words[@]} in
                0) COMPREPLY=($(compgen -W "set" -- "$cur")) ;;
                1) [[ ${words[0]} == set ]] && COMPREPLY=($(compgen -W "$keys" -- "$cur")) ;;
                2) [[ ${words[0]} == set ]] && COMPREPLY=($(compgen -W "$(_hushmeadows_values "${words[1]}")" -- "$cur")) ;;
            esac
            ;;
    esac
}

complete -F _hushmeadows hushmeadows
