# SPDX-License-Identifier: GPL-2.0-only
"""The scenarios of scripts/compare-builds: cases of the system test program, which say what happens in them.

Each line is one case, by patterns of its name; several where the case has had another name in an older checkout.
"""

SCENARIOS = {
    "demo": [],
    "demo-own-programs": [],
    "incoming-call": [
        "*Calls.incoming_*cleared_by_the_far_end*",
        "*Calls.incoming_*cleared_by_the_application*",
        "*IncomingCalls.reject_sends_cause_21_*:*.reject_of_an_offered_call_*",
        "*IncomingCalls.*for_the_signalling_*",
    ],
    "outgoing-call": [
        "*OutgoingCalls.answered_give_*:*.an_answered_call_*",
        "*OutgoingCalls.an_unanswered_call_*",
        "*OutgoingCalls.numbers_carry_*:*.both_numbers_carry_*",
        "*OutgoingCalls.numbers_are_cut_*",
    ],
    "refused-call": [
        "*OutgoingCalls.refused_bring_*:*.a_refused_call_*",
        "*Calls.busy_far_end_*",
        "*OutgoingCalls.clearings_tell_*:*.every_clearing_*",
        "*Calls.a_channel_without_incoming_*:*.a_channel_that_allows_no_incoming_*",
    ],
    "redirected-call": [
        "*IncomingCalls.every_redirect_reason_*",
        "*Information.*of_an_incoming_call_*",
    ],
    "digits": ["*Sound.digits_of_the_far_end_*"],
    "sound": ["*ThirtyCalls.carry_their_own_*:*Sound.thirty_calls_*"],
    "play-callback": ["*Sound.the_play_callback_*"],
    "stopped-sound": ["*Sound.stop_play_silences_*"],
    "files": [
        "*PlayFile.files_of_all_four_formats_*",
        "*PlayFile.unplayable_files_*:*PlayFile.files_that_cannot_*",
    ],
    "lost-trunk": ["*TrunkLoss.takes_calls_in_every_state*", "*TrunkLoss.a_lost_card_*"],
    "network-role": [
        "*NetworkRole.an_outgoing_call_*",
        "*NetworkRole.a_busy_far_end_*",
        "*NetworkRole.an_acknowledged_answer_*:*.a_far_end_that_acknowledges_*",
    ],
    "card-restart": [
        "*Announcements.at_level_3_reopen_*",
        "*Capture.is_appended_to_*",
    ],
    "echo": ["*Echo.switch_*"],
    "line-errors": [
        "*Control.ten_errors_*",
        "*Control.every_error_*",
        "*Control.needs_no_marker_*:*.a_register_read_back_*",
        "*Control.a_frame_of_299_*",
    ],
    "packet-order": [
        "*AudioOrder.packets_1_3_4_*",
        "*AudioOrder.a_loss_with_hint_9_*",
        "*AudioOrder.nine_old_packets_*",
        "*RandomOrders.are_answered_*:*.three_hundred_orders_*",
    ],
    "log-levels": ["Levels/*CallLog.*"],
    "audio-path": [
        "*AudioPath.begins_with_160_*:*.lines_begin_*",
        "*AudioPath.buffers_back_to_back_*:*.buffers_queued_*",
        "*.play_time_of_100_bytes_*",
    ],
    "start-up": ["*Startup.*"],
}

# Where a stop or a hang-up decides how long a sound is.
CUT_SHORT = {"digits", "echo", "play-callback", "stopped-sound"}
# Where the echo canceller is on.
CANCELLED = {"echo"}
