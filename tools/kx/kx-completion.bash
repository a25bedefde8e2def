# bash completion for kx (installed as share/bash-completion/completions/kx)
_kx() {
    local cur prev words cword
    _init_completion 2>/dev/null || { cur=${COMP_WORDS[COMP_CWORD]}; prev=${COMP_WORDS[COMP_CWORD-1]}; words=("${COMP_WORDS[@]}"); cword=$COMP_CWORD; }
    local commands="info state watch movej movel jog stop clear io gripper program teach fk ik view"
    local models="AVEN BRIV CALD DUMO ESKA FIRU GOLT"
    if [ "$cword" -eq 1 ]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    local cmd=${words[1]} opts="--json --help --verbose"
    case $cmd in
        watch) opts+=" --seconds --interval" ;;
        movej|movel) opts+=" --speed --no-wait --timeout" ;;
        jog) opts+=" --step --speed" ;;
        gripper) opts+=" --speed --force --no-wait --timeout" ;;
        program) opts+=" --run --id --speed --no-wait" ;;
        teach) opts+=" --seconds" ;;
        fk) opts+=" --edition" ;;
        ik) opts+=" --ref --edition" ;;
        view) opts+=" --listen --token --read-only" ;;
    esac
    if [[ $cur == --* ]]; then
        COMPREPLY=($(compgen -W "$opts" -- "$cur"))
        return
    fi
    case $prev in
        --edition) COMPREPLY=($(compgen -W "P QA QS" -- "$cur")); return ;;
        --listen) COMPREPLY=($(compgen -W "127.0.0.1:8000" -- "$cur")); return ;;
    esac
    case "$cmd:$cword" in
        fk:2|ik:2) COMPREPLY=($(compgen -W "$models" -- "$cur")) ;;
        io:3) COMPREPLY=($(compgen -W "get set" -- "$cur")) ;;
        gripper:3) COMPREPLY=($(compgen -W "open close pos state" -- "$cur")) ;;
        program:3) COMPREPLY=($(compgen -W "upload list run delete" -- "$cur")) ;;
        teach:3) COMPREPLY=($(compgen -W "record" -- "$cur")) ;;
        jog:3) COMPREPLY=($(compgen -W "1 2 3 4 5 6 7 x y z rx ry rz" -- "$cur")) ;;
        jog:4) COMPREPLY=($(compgen -W "+ -" -- "$cur")) ;;
        program:4|teach:4) [ "${words[3]}" = upload ] || [ "$cmd" = teach ] && COMPREPLY=($(compgen -f -- "$cur")) ;;
    esac
}
complete -F _kx kx
