# Completion of qonctl's words, by the agent that runs.

_qonctl()
{
   local IFS=$'\n' word=${COMP_WORDS[COMP_CWORD]} words=() socket=() i
   for (( i = 1; i <= COMP_CWORD; ++i )); do
      case ${COMP_WORDS[i]} in
      -s | --socket)
         socket=( --socket "${COMP_WORDS[i + 1]}" )
         (( ++i ))
         ;;
      -?*) ;;
      *) words+=( "${COMP_WORDS[i]}" ) ;;
      esac
   done
   COMPREPLY=( $( qonctl "${socket[@]}" --timeout 2 complete -- "${words[@]}" 2> /dev/null ) )
   [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[=/[] ]] && compopt -o nospace
   return 0
}

complete -F _qonctl qonctl
