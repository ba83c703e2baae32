#!/usr/bin/env bash
# Builds the unit tests with AddressSanitizer and UndefinedBehaviorSanitizer,
# and the deferred engine's and game service's tests with ThreadSanitizer, and
# runs them. The service tests start velour-servicemanager and velour-hearthd of
# the same build, so the service is checked along with the client.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
unit_targets=(velour_utils_tests velour_platform_tests velour_log_tests velour_layer_tests
              velour_deferred_tests velour_styles_tests velour_games_tests velour_service_tests
              velour-servicemanager velour-hearthd velour-dat velour-prop velour-probe velour
              tessel_config_tests)
unit_tests='^(utils|dat_tool|platform|log|layer|games|games_driver_label|deferred|styles|service|tessel_config)$'

asan=${VELOUR_ASAN_DIR:-$top/build-asan}
cmake -S "$top" -B "$asan" -G Ninja -DVELOUR_SANITIZE=address,undefined >/dev/null
ninja -C "$asan" "${unit_targets[@]}"
ctest --test-dir "$asan" --output-on-failure -R "$unit_tests"

tsan=${VELOUR_TSAN_DIR:-$top/build-tsan}
cmake -S "$top" -B "$tsan" -G Ninja -DVELOUR_SANITIZE=thread >/dev/null
ninja -C "$tsan" velour_deferred_tests velour_service_tests velour-servicemanager velour-hearthd
ctest --test-dir "$tsan" --output-on-failure -R '^(deferred|service)$'
