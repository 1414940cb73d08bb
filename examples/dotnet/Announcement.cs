// SPDX-License-Identifier: GPL-2.0-only
//
// Answers every call, plays a prompt from its first to its last sample and hangs up. Ctrl-C ends.
//
// Usage: Announcement.exe PROMPT.wav      ZELKAPI_LIBRARY names the library
// mcs -langversion:7 -out:Announcement.exe Announcement.cs ZelkApi.cs && cp ZelkApi.config Announcement.exe.config
using System;
using System.Collections.Generic;
using Zelk;

static class Announcement
{
    static readonly HashSet<ZelkChannel> calls = new HashSet<ZelkChannel>(); // those that were told of
    static byte[] prompt;

    static void Show(ZelkChannel channel, string text) => Console.Out.WriteLine("channel " + channel.Number + ": " + text);

    static void OnCall(object sender, ZelkEventArgs call)
    {
        Show(call.Channel, "call from " + call.Calling);
        calls.Add(call.Channel);
        call.Channel.Answer();
    }

    static void OnConnected(object sender, ZelkEventArgs call)
    {
        // Where we are the network side, it comes twice.
        if (calls.Contains(call.Channel) && call.Channel.PlayTimeLeft == 0) call.Channel.Play(prompt);
    }

    static void OnPlayed(object sender, ZelkEventArgs call)
    {
        if (call.Channel.PlayTimeLeft == 0) call.Channel.Hangup(); // and not the end of an earlier play
    }

    static void OnEnd(ZelkChannel channel, string how)
    {
        channel.Stop(); // what is left must not be heard in the next call
        if (calls.Remove(channel)) Show(channel, "ended, " + how);
    }

    static void Serve()
    {
        using (var zelk = new ZelkLibrary())
        {
            if (zelk.Channels.Count == 0) throw new ZelkException("", "no card found");
            zelk.IncomingCall += OnCall;
            zelk.Connected += OnConnected;
            zelk.PlayDone += OnPlayed;
            zelk.Disconnected += (sender, call) => OnEnd(call.Channel, call.Reason);
            zelk.ChannelState += (sender, state) => { if (!state.Up) OnEnd(state.Channel, "trunk lost"); };
            zelk.Run("waiting for calls on " + zelk.Channels.Count + " channels, Ctrl-C ends");
        }
    }

    static int Main(string[] arguments)
    {
        if (arguments.Length != 1)
        {
            Console.Error.WriteLine("usage: Announcement.exe PROMPT.wav");
            return 2;
        }
        try
        {
            // The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
            prompt = ZelkSound.Join(ZelkSound.Read(arguments[0]), ZelkSound.Silence(20));
            Serve();
            return 0;
        }
        catch (ZelkException error)
        {
            Console.Error.WriteLine("announcement: " + error.Message);
            return 1;
        }
    }
}
