// SPDX-License-Identifier: GPL-2.0-only
//
// Answers every call and lets the caller choose from a menu and a sub-menu. Ctrl-C ends.
//
// Usage: Ivr.exe FOLDER [--wait S]      ZELKAPI_LIBRARY names the library
// FOLDER holds the prompts: menu.wav, hours.wav, branches.wav, north.wav, south.wav, wrong.wav, goodbye.wav.
// mcs -langversion:7 -out:Ivr.exe Ivr.cs ZelkApi.cs && cp ZelkApi.config Ivr.exe.config
using System;
using System.Collections.Generic;
using System.Globalization;
using System.IO;
using System.Linq;
using Zelk;

// A caller and where he is; menu is "" when he is on his way out. All on the thread of the events.
class Caller
{
    const int MostWrong = 3;
    // Of each menu, named after its prompt: entry, what it plays ("" for nothing), and the menu that follows.
    static readonly Dictionary<string, string> choices = new Dictionary<string, string>
    {
        { "menu 1", "hours menu" }, { "menu 2", " branches" }, { "menu 0", "goodbye " },
        { "branches 1", "north branches" }, { "branches 2", "south branches" }, { "branches *", " menu" }
    };
    readonly ZelkChannel channel;
    string menu = "menu";
    int wrong;
    bool connected;
    IDisposable timer;

    public Caller(ZelkChannel channel) { this.channel = channel; }

    // At once, in place of what is heard, one behind the other without a gap.
    void Play(params string[] names)
    {
        EndWait();
        channel.Stop();
        channel.Play(ZelkSound.Join(names.Where(name => name != "").Select(name => Ivr.Prompts[name]).ToArray()));
    }

    public void EndWait() => timer?.Dispose();

    public void Begin()
    {
        if (!connected) Play(menu); // where we are the network side, it comes twice
        connected = true;
    }

    public void Choose(char digit)
    {
        if (menu == "") return;
        if (!choices.TryGetValue(menu + " " + digit, out var choice))
        {
            Miss("wrong");
            return;
        }
        wrong = 0;
        menu = choice.Split(' ')[1];
        Play(choice.Split(' ')[0], menu);
    }

    // A wrong entry, or none.
    void Miss(string prompt)
    {
        if (++wrong == MostWrong) menu = "";
        Play(prompt, menu == "" ? "goodbye" : menu);
    }

    public void Played()
    {
        if (channel.PlayTimeLeft != 0) return; // the end of an earlier play
        EndWait();
        if (menu == "") channel.Hangup();
        else timer = channel.After(Ivr.Wait, () => Miss(""));
    }
}

static class Ivr
{
    public static readonly Dictionary<string, byte[]> Prompts = new Dictionary<string, byte[]>();
    public static TimeSpan Wait = TimeSpan.FromSeconds(5);
    static readonly Dictionary<ZelkChannel, Caller> callers = new Dictionary<ZelkChannel, Caller>();

    static void Show(ZelkChannel channel, string text) => Console.Out.WriteLine("channel " + channel.Number + ": " + text);

    static void OnCall(object sender, ZelkEventArgs call)
    {
        Show(call.Channel, "call from " + call.Calling);
        callers[call.Channel] = new Caller(call.Channel);
        call.Channel.Answer();
    }

    static void OnEnd(ZelkChannel channel, string how)
    {
        if (!callers.TryGetValue(channel, out var caller)) return;
        caller.EndWait();
        channel.Stop(); // what is left must not be heard in the next call
        callers.Remove(channel);
        Show(channel, "ended, " + how);
    }

    static EventHandler<ZelkEventArgs> With(Action<Caller, ZelkEventArgs> act) =>
        (sender, each) => { if (callers.TryGetValue(each.Channel, out var caller)) act(caller, each); };

    static void Serve()
    {
        using (var zelk = new ZelkLibrary())
        {
            if (zelk.Channels.Count == 0) throw new ZelkException("", "no card found");
            zelk.IncomingCall += OnCall;
            zelk.Connected += With((caller, each) => caller.Begin());
            zelk.Digit += With((caller, each) => caller.Choose(each.Digit));
            zelk.PlayDone += With((caller, each) => caller.Played());
            zelk.Disconnected += (sender, each) => OnEnd(each.Channel, each.Reason);
            zelk.ChannelState += (sender, each) => { if (!each.Up) OnEnd(each.Channel, "trunk lost"); };
            zelk.Run("waiting for calls on " + zelk.Channels.Count + " channels, Ctrl-C ends");
        }
    }

    static int Main(string[] arguments)
    {
        double seconds = 5;
        if ((arguments.Length != 1 && (arguments.Length != 3 || arguments[1] != "--wait"))
            || (arguments.Length == 3 && !double.TryParse(arguments[2], NumberStyles.Float, CultureInfo.InvariantCulture, out seconds)))
        {
            Console.Error.WriteLine("usage: Ivr.exe FOLDER [--wait S]");
            return 2;
        }
        Wait = TimeSpan.FromSeconds(seconds);
        try
        {
            foreach (var name in "menu hours branches north south wrong goodbye".Split(' '))
                Prompts[name] = ZelkSound.Read(Path.Combine(arguments[0], name + ".wav"));
            // The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
            Prompts["goodbye"] = ZelkSound.Join(Prompts["goodbye"], ZelkSound.Silence(20));
            Serve();
            return 0;
        }
        catch (ZelkException error)
        {
            Console.Error.WriteLine("ivr: " + error.Message);
            return 1;
        }
    }
}
