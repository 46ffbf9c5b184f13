# fish completion for hushmeadows(1)

set -l commands check list play saver install-xscreensaver render-audio settings help
set -l keys musicVolume ambienceVolume isMuted screenSaverAudioEnabled screenSaverAllDisplays screenSaverChosen \
    launchBehavior pixelPerfectScaling framing showsMenuBarExtra selectedWorldID worldMixes favouriteWorldIDs timeOfDay \
    sleepTimer welcomeSeen longAmbientSessions reviewRequested libraryTab musicStyle musicStyleDefault

# The ids of the worlds the saver finds, as `hushmeadows list` shows them.
function __hushmeadows_worlds
    hushmeadows list 2>/dev/null | string match -r '^[* ]\t[^\t]*' | string sub -s 3
end

# The words after `settings` that are neither options nor their values.
function __hushmeadows_settings_words
    set -l words (commandline -opc)
    set -e words[1..2]
    set -l result
    set -l skip 0
    for word in $words
        if test $skip = 1
            set skip 0
        else if test "$word" = --file
            set skip 1
        else if not string match -q -- '-*' $word
            set -a result $word
        end
    end
    for word in $result
        echo $word
    end
end

function __hushmeadows_settings_at
    set -l words (__hushmeadows_settings_words)
    test (count $words) -eq $argv[1]; and begin
        test $argv[1] -eq 0; or test "$words[1]" = set
    end
end

function __hushmeadows_setting_values
    set -l key (__hushmeadows_settings_words)[2]
    switch $key
        case isMuted screenSaverAudioEnabled screenSaverAllDisplays pixelPerfectScaling showsMenuBarExtra welcomeSeen reviewRequested
            printf '%s\n' true false
        case screenSaverChosen
            printf '%s\n' true false null
        case framing
            printf '%s\n' fill wholeScene
        case launchBehavior
            printf '%s\n' showWindow enterAmbientMode
        case sleepTimer
            printf '%s\n' off after15Minutes after30Minutes after60Minutes
        case timeOfDay
            printf '%s\n' automatic day night
        case libraryTab
            printf '%s\n' pixel voxel null
        case musicStyle
            printf '%s\n' classic studio null
        case musicStyleDefault
            printf '%s\n' classic studio
        case musicVolume ambienceVolume
            printf '%s\n' null
        case selectedWorldID
            printf '%s\n' null (__hushmeadows_worlds)
    end
end

# True while no world has been named yet (play and render-audio take one).
function __hushmeadows_no_world
    set -l words (commandline -opc)
    set -e words[1..2]
    set -l skip 0
    for word in $words
        if test $skip = 1
            set skip 0
        else if contains -- $word --window --window-id --framing --seconds --out --fade-in --phase
            set skip 1
        else if not string match -q -- '-*' $word
            return 1
        end
    end
    return 0
end

complete -c hushmeadows -f
complete -c hushmeadows -n "not __fish_seen_subcommand_from $commands" -a "$commands"
complete -c hushmeadows -n "not __fish_seen_subcommand_from $commands" -l version -d "the program's version"
complete -c hushmeadows -l help -d "the command's usage"
complete -c hushmeadows -n "__fish_seen_subcommand_from help" -a "$commands"

complete -c hushmeadows -n "__fish_seen_subcommand_from check" -l media -d "also decode the media"
complete -c hushmeadows -n "__fish_seen_subcommand_from check" -F

complete -c hushmeadows -n "__fish_seen_subcommand_from list install-xscreensaver settings" -l file -r -F

complete -c hushmeadows -n "__fish_seen_subcommand_from play render-audio; and __hushmeadows_no_world" -a "(__hushmeadows_worlds)"
complete -c hushmeadows -n "__fish_seen_subcommand_from play" -l window -x -d WIDTHxHEIGHT
complete -c hushmeadows -n "__fish_seen_subcommand_from play saver" -l window-id -x -d "an X window id"
complete -c hushmeadows -n "__fish_seen_subcommand_from play" -l poster-only
complete -c hushmeadows -n "__fish_seen_subcommand_from play" -l framing -x -a "fill wholeScene"
complete -c hushmeadows -n "__fish_seen_subcommand_from play" -l no-pixel-perfect

complete -c hushmeadows -n "__fish_seen_subcommand_from saver" -l root -d "draw on XScreenSaver's window"

complete -c hushmeadows -n "__fish_seen_subcommand_from render-audio" -l seconds -x
complete -c hushmeadows -n "__fish_seen_subcommand_from render-audio" -l out -r -F
complete -c hushmeadows -n "__fish_seen_subcommand_from render-audio" -l fade-in -x
complete -c hushmeadows -n "__fish_seen_subcommand_from render-audio" -l phase -x -a "day night"

complete -c hushmeadows -n "__fish_seen_subcommand_from settings; and __hushmeadows_settings_at 0" -a set
complete -c hushmeadows -n "__fish_seen_subcommand_from settings; and __hushmeadows_settings_at 1" -a "$keys"
complete -c hushmeadows -n "__fish_seen_subcommand_from settings; and __hushmeadows_settings_at 2" -a "(__hushmeadows_setting_values)"
