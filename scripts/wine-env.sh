# Wine settings of every script that starts Wine (sourced): the project's
# prefix in the cache, no debug output, no .NET or HTML engine installers.
export WINEPREFIX=${WINEPREFIX:-${QUILLON_CACHE:-$HOME/.cache/quillon}/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
