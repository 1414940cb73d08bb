"""The scenarios of scripts/compare-builds: tests of the system test program, which say what happens in them.

Patterns of the cases' names alone; each must fit at least one case of the old checkout.
"""

SCENARIOS = {
    "demo": [],
    "incoming-call": [
        "*.incoming_call_cleared_by_the_far_end_*", "*.incoming_call_cleared_by_the_application_*",
        "*.reject_of_an_offered_call_*", "*.calls_for_the_signalling_and_the_framing_*"],
    "outgoing-call": [
        "*.an_answered_call_*", "*.an_unanswered_call_*",
        "*.both_numbers_carry_*", "*.numbers_are_cut_*"],
    "refused-call": [
        "*.a_refused_call_*", "*.busy_far_end_*", "*.every_clearing_*",
        "*.a_channel_that_allows_no_incoming_*"],
    "redirected-call": ["*.every_redirect_reason_*", "*.keys_and_codes_of_an_incoming_*"],
    "digits": ["*.digits_of_the_far_end_*"],
    "sound": ["*.thirty_calls_*"],
    "play-callback": ["*.the_play_callback_*"],
    "stopped-sound": ["*.stop_play_silences_*"],
    "files": ["*.files_of_all_four_formats_*", "*.files_that_cannot_*"],
    "lost-trunk": ["*.takes_calls_in_every_state_*", "*.a_lost_card_*"],
    "network-role": ["*.an_outgoing_call_*", "*.a_busy_far_end_*",
                     "*.a_far_end_that_acknowledges_*"],
    "card-restart": ["*.of_an_open_card_*", "*.bring_back_*",
                     "*.is_appended_to_*"],
    "echo": ["*.switch_of_a_trunk_*"],
    "line-errors": ["*.ten_errors_*", "*.every_error_*", "*.a_register_read_back_*",
                    "*.a_frame_of_299_*"],
    "packet-order": ["*.packets_1_3_4_*", "*.a_loss_with_hint_9_*",
                     "*.nine_old_packets_*", "*.three_hundred_orders_*"],
    "log-levels": ["Levels/CCallLog.*"],
    "audio-path": ["*.lines_begin_*", "*.buffers_queued_*", "*.play_time_*"],
    "start-up": ["CStartup.*"],
}

# Where a stop or a hang-up decides how long a sound is.
CUT_SHORT = {"digits", "echo", "play-callback", "stopped-sound"}
# Where the echo canceller is on.
CANCELLED = {"echo"}
