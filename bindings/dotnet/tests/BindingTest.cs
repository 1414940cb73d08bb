// SPDX-License-Identifier: GPL-2.0-only
//
// ZelkApi.cs against the library and a simulated card: what it must refuse, the 24 functions as they are, and calls without
// pause on every channel while the collector is forced after each event. Usage (see run): BindingTest.exe calls SECONDS FOLDER, or
// BindingTest.exe plain, or, where a copy of the library stands beside it, BindingTest.exe another
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Threading;
using Zelk;

static class BindingTest
{
    static int checks;

    public static void Expect(bool holds, string what)
    {
        ++checks;
        if (!holds) throw new Exception("does not hold: " + what);
    }

    static void Throws<T>(Action action, string part) where T : Exception
    {
        try
        {
            action();
        }
        catch (T error)
        {
            Expect(error.Message.Contains(part), "\"" + error.Message + "\" contains \"" + part + "\"");
            return;
        }
        Expect(false, "no " + typeof(T).Name + ": " + part);
    }

    public static void Collect()
    {
        GC.Collect();
        GC.WaitForPendingFinalizers();
    }

    static int Main(string[] arguments)
    {
        if (arguments[0] == "plain") CallPlainFunctions();
        else if (arguments[0] == "another")
            Throws<ZelkLibraryException>(() => new ZelkLibrary(), "the runtime took another copy: ");
        else CallByChannels(Environment.GetEnvironmentVariable("ZELKAPI_LIBRARY"), arguments[2], double.Parse(arguments[1]));
        Console.Out.WriteLine(checks + " checks held");
        return 0;
    }

    static void CallByChannels(string path, string folder, double seconds)
    {
        RefuseLibraries(path, folder);
        using (var zelk = new ZelkLibrary(path))
        {
            RefuseOperations(zelk, path);
            PlayFiles(zelk, folder);
            KnowChannels(zelk, folder);
            HandlersThatFail(zelk);
            RefuseAfterwards(zelk);
        }
        using (var zelk = new ZelkLibrary(path))
            new Calls(zelk, TimeSpan.FromSeconds(seconds)).Run();
        Throws<InvalidOperationException>(() => ZelkNative.ZELK_SetEventCallback((channel, code, param) => { }), "MONO_THREADS_SUSPEND=coop");
        ZelkNative.ZELK_SetEventCallback(null);
    }

    static void RefuseLibraries(string path, string folder)
    {
        var file = Path.Combine(folder, "bad.so");
        Throws<ZelkLibraryException>(() => new ZelkLibrary(file), file + ": no such file");
        Throws<ZelkLibraryException>(() => new ZelkLibrary(folder), folder + ": is a folder");
        File.WriteAllText(file, "no library, and long enough for the head of one, which takes sixty-four bytes");
        Throws<ZelkLibraryException>(() => new ZelkLibrary(file), file + ": is not a shared library of this system");
        var bytes = File.ReadAllBytes(path);
        File.WriteAllBytes(file, bytes.Take(bytes.Length / 2).ToArray());
        Throws<ZelkLibraryException>(() => new ZelkLibrary(file), file + ": is cut short");
        bytes[4] = 1; // a class of 32 bits
        File.WriteAllBytes(file, bytes);
        Throws<ZelkLibraryException>(() => new ZelkLibrary(file), file + ": is a library of 32 bits, and this process has 64");
        Throws<ZelkLibraryException>(() => new ZelkLibrary("/lib/x86_64-linux-gnu/libdl.so.2"), "does not export ZELK_SetEventCallback, ");
        Throws<ZelkLibraryException>(() => new ZelkLibrary(path, file), file + ": is a library of 32 bits");
        Throws<ZelkLibraryException>(() => new ZelkLibrary(path, path), path + ": does not export ZELKQ_Start");
    }

    static void RefuseOperations(ZelkLibrary zelk, string path)
    {
        Throws<InvalidOperationException>(() => new ZelkLibrary(path), "in use already");
        Expect(zelk.Channels.Count == 30, "30 channels");
        Throws<ArgumentOutOfRangeException>(() => zelk.Channel(30), "there is no channel 30: there are 30");
        Throws<ArgumentOutOfRangeException>(() => zelk.Channel(-1), "there is no channel -1");
        var channel = zelk.Channel(3);
        Throws<ArgumentException>(() => channel.Dial(new string('1', 32)), "has 32 characters, 31 reach the line");
        Throws<ArgumentException>(() => channel.Dial("030-5551234"), "other characters than digits");
        Throws<ArgumentException>(() => channel.Dial(""), "is empty");
        Throws<ArgumentNullException>(() => channel.Dial(null), "number");
        Throws<ArgumentException>(() => channel.Dial("1", "x"), "other characters than digits");
        Expect(channel.State != ZelkChannelState.InUse, "nothing was dialled");
    }

    static void Write(string path, int tag, int channels, int rate, int bits, byte[] sound, int claimed)
    {
        using (var file = new BinaryWriter(File.Create(path)))
        {
            file.Write("RIFF".ToCharArray());
            file.Write(36 + sound.Length);
            file.Write("WAVEfmt ".ToCharArray());
            file.Write(16);
            file.Write((short)tag);
            file.Write((short)channels);
            file.Write(rate);
            file.Write(rate * channels * bits / 8);
            file.Write((short)(channels * bits / 8));
            file.Write((short)bits);
            file.Write("data".ToCharArray());
            file.Write(claimed);
            file.Write(sound);
        }
    }

    static void PlayFiles(ZelkLibrary zelk, string folder)
    {
        var channel = zelk.Channel(5);
        var path = Path.Combine(folder, "a.wav");
        var sound = new byte[] { 0, 1, 2, 3 };
        Write(path, 6, 1, 8000, 8, sound, 4);
        Expect(ZelkSound.Read(path).SequenceEqual(sound), "A-law is read as it is");
        channel.PlayFile(path);
        Expect(channel.PlayTimeLeft > 0, "a file is queued");
        channel.Stop();
        Expect(channel.PlayTimeLeft == 0, "nothing is queued");
        // Codes of ITU-T G.711, tables 1a and 2a.
        Write(path, 1, 1, 8000, 16, new byte[] { 0, 0, 24, 0, 0xE8, 0xFF, 0x08, 2, 0xFF, 0x7F }, 10);
        Expect(ZelkSound.Read(path).SequenceEqual(new byte[] { 0xD5, 0xD4, 0x54, 0xF5, 0xAA }), "linear sound becomes A-law");
        Write(path, 7, 1, 8000, 8, new byte[] { 0xFF, 0x7F, 0x80, 0x00 }, 4);
        Expect(ZelkSound.Read(path).SequenceEqual(new byte[] { 0xD5, 0xD5, 0xAA, 0x2A }), "mu-law becomes A-law");
        Write(path, 6, 2, 8000, 8, sound, 4);
        Throws<ZelkSoundException>(() => channel.PlayFile(path), path + ": is not 8000 Hz mono (8000 Hz, 2 channels)");
        Write(path, 6, 1, 16000, 8, sound, 4);
        Throws<ZelkSoundException>(() => channel.PlayFile(path), "is not 8000 Hz mono (16000 Hz, 1 channels)");
        Write(path, 6, 1, 8000, 8, sound, 5);
        Throws<ZelkSoundException>(() => channel.PlayFile(path), path + ": is cut short");
        Write(path, 17, 1, 8000, 4, sound, 4);
        Throws<ZelkSoundException>(() => channel.PlayFile(path), "(format 17, 4 bits)");
        File.WriteAllText(path, "something else");
        Throws<ZelkSoundException>(() => channel.PlayFile(path), path + ": is not a WAV file");
        Throws<ZelkSoundException>(() => channel.PlayFile(path + ".none"), "cannot be read: no such file");
    }

    static void KnowChannels(ZelkLibrary zelk, string folder)
    {
        var channel = zelk.Channel(16);
        Expect(channel.Value(ZelkInfo.Timeslot) == 18 && channel.Value(ZelkInfo.Trunk) == 0, "timeslot and trunk");
        Expect(channel.Text(ZelkInfo.SerialNo) == "100001" && channel.Text(ZelkInfo.Timeslot) == null, "texts");
        Expect(!channel.Transfer() && channel.SetText(1, "x") == 0, "what is not available");
        Expect(channel.SetInfo(ZelkSetInfo.AllowIncoming, 1) && !channel.SetInfo((ZelkSetInfo)2, 1), "settings");
        Expect(channel.LastError == ZelkError.None && channel.CallType == ZelkCallType.Voice, "no error, no call");
        Expect(ZelkLibrary.Reason(17) == "USER_BUSY" && ZelkLibrary.Reason(-1) == "REASON_UNKNOWN", "names of causes");
        var path = Path.Combine(folder, "a.raw");
        File.WriteAllBytes(path, new byte[44].Concat(new byte[] { 9, 8, 7 }).ToArray());
        zelk.RawToWave(path);
        Expect(ZelkSound.Read(path).SequenceEqual(new byte[] { 9, 8, 7 }), "a raw recording becomes a WAV file");
        Throws<ZelkSoundException>(() => zelk.RawToWave(path + ".none"), "FileOpen");
        channel.SetRing(50);
        var sound = new byte[1600];
        while (channel.ReadSound(sound, out var lost) == 0) Expect(lost == 0, "nothing is lost");
        channel.SetRing(0);
        channel.Close();
        channel.Open();
    }

    static void HandlersThatFail(ZelkLibrary zelk)
    {
        var order = new List<string>();
        var done = new ManualResetEvent(false);
        zelk.HandlerFailed += error => { lock (order) order.Add(error.Message); };
        zelk.After(TimeSpan.FromMilliseconds(40), () => done.Set());
        zelk.After(TimeSpan.FromMilliseconds(20), () => { lock (order) order.Add("second"); });
        zelk.After(TimeSpan.Zero, () => throw new Exception("first"));
        zelk.After(TimeSpan.FromMilliseconds(10), () => { lock (order) order.Add("never"); }).Dispose();
        zelk.Begin();
        Expect(done.WaitOne(60000), "times come");
        Expect(string.Join(" ", order) == "first second", "in their order: " + string.Join(" ", order));
    }

    static void RefuseAfterwards(ZelkLibrary zelk)
    {
        var channel = zelk.Channel(0);
        zelk.Dispose();
        zelk.Dispose();
        foreach (var use in new Action[]
        {
            channel.Answer, channel.Hangup, channel.Open, channel.Close, channel.Stop, () => channel.Dial("1"), () => channel.Reject(),
            () => channel.Transfer(), () => channel.Play(new byte[8]), () => channel.PlayFile("x"), () => channel.Text(ZelkInfo.Cli),
            () => channel.Value(ZelkInfo.Trunk), () => channel.SetText(1, "x"), () => channel.SetRing(1),
            () => channel.SetInfo(ZelkSetInfo.AllowIncoming, 1), () => Expect(channel.PlayTimeLeft == 0, ""),
            () => Expect(channel.LastError == 0, ""), () => Expect(channel.State == 0, ""), () => zelk.RawToWave("x")
        }) Throws<ObjectDisposedException>(use, "ZelkLibrary");
    }

    // The declarations as they are, with callbacks that nobody but the declarations holds.
    static void CallPlainFunctions()
    {
        var states = new CountdownEvent(30);
        var played = new CountdownEvent(600);
        var heard = new CountdownEvent(600);
        var came = new AutoResetEvent(false);
        ZelkNative.ZELK_SetEventCallback((channel, code, param) =>
        {
            if (code == (uint)ZelkEvent.ChannelState && param == 1) states.Signal();
            came.Set();
        });
        ZelkNative.ZELK_SetPlayCallback((channel, data, length) =>
        {
            if (length == 160 && !played.IsSet) played.Signal();
            came.Set();
        });
        ZelkNative.ZELK_SetRecordCallback((channel, data, length) =>
        {
            if (length == 160 && !heard.IsSet) heard.Signal();
            came.Set();
        });
        Collect();
        Expect(ZelkNative.ZELK_Init(), "Init");
        while (!states.IsSet || !played.IsSet || !heard.IsSet)
        {
            Expect(came.WaitOne(60000), "callbacks come");
            Collect();
        }
        Expect(ZelkNative.ZELK_GetChannelCount() == 30, "GetChannelCount");
        Expect(ZelkNative.ZELK_OpenChannel(0) && !ZelkNative.ZELK_OpenChannel(30), "OpenChannel");
        Expect(ZelkNative.ZELK_GetLastError(0) == 0 && ZelkNative.ZELK_GetLastError(30) == (uint)ZelkError.BadChannel, "GetLastError");
        Expect(ZelkNative.ZELK_GetChannelInfo(16, (uint)ZelkInfo.Timeslot) == 18, "GetChannelInfo");
        Expect(Marshal.PtrToStringAnsi(ZelkNative.ZELK_GetChannelInfoString(0, (uint)ZelkInfo.LineType)) == "PRI", "GetChannelInfoString");
        Expect(ZelkNative.ZELK_GetChannelInfoString(0, (uint)ZelkInfo.Timeslot) == IntPtr.Zero, "a key without a text");
        Expect(ZelkNative.ZELK_SetChannelInfo(0, 1, 1) == 1 && ZelkNative.ZELK_SetChannelInfo(0, 2, 1) == 0, "SetChannelInfo");
        Expect(ZelkNative.ZELK_SetChannelInfoString(0, 1, "x") == 0, "SetChannelInfoString");
        Expect(ZelkNative.ZELK_PlayBuffer(0, new byte[800], 800) && ZelkNative.ZELK_PlayTimeLeft(0) > 0, "PlayBuffer, PlayTimeLeft");
        ZelkNative.ZELK_StopPlay(0);
        Expect(ZelkNative.ZELK_PlayTimeLeft(0) == 0, "StopPlay");
        Expect(!ZelkNative.ZELK_PlayFile(0, "none.wav") && ZelkNative.ZELK_GetLastError(0) == (uint)ZelkError.FileOpen, "PlayFile");
        Expect(ZelkNative.ZELK_Dial(0, "100", null) && !ZelkNative.ZELK_Dial(0, "100", null), "Dial");
        Expect(ZelkNative.ZELK_Answer(1) && !ZelkNative.ZELK_Reject(1), "Answer, Reject");
        Expect(ZelkNative.ZELK_Hangup(0) && !ZelkNative.ZELK_Hangup(30), "Hangup");
        Expect(!ZelkNative.ZELK_Transfer(0), "Transfer");
        Expect(Marshal.PtrToStringAnsi(ZelkNative.ZELK_DisconnectReasonToString(16)) == "NORMAL_CLEARING", "DisconnectReasonToString");
        Expect(ZelkNative.ZELK_ConvertRawToWaveFile("none.raw", 2) == (uint)ZelkError.FileOpen, "ConvertRawToWaveFile");
        ZelkNative.ZELK_CloseChannel(0);
        ZelkNative.ZELK_Shutdown();
        ZelkNative.ZELK_SetEventCallback(null);
        ZelkNative.ZELK_SetPlayCallback(null);
        ZelkNative.ZELK_SetRecordCallback(null);
        Expect(ZelkNative.ZELK_GetChannelCount() == 0, "Shutdown");
    }
}

// Calls without pause: on every channel one is dialled, plays and hears three digits, and is hung up. After each event the
// collector is forced. All on the thread of the events.
class Calls
{
    readonly ZelkLibrary zelk;
    readonly TimeSpan time;
    readonly System.Diagnostics.Stopwatch watch = System.Diagnostics.Stopwatch.StartNew();
    readonly Dictionary<ZelkChannel, string> steps = new Dictionary<ZelkChannel, string>(); // of the call on a channel
    ulong events;
    int dialled, ended;

    public Calls(ZelkLibrary zelk, TimeSpan time)
    {
        this.zelk = zelk;
        this.time = time;
    }

    public void Run()
    {
        Exception failed = null;
        zelk.HandlerFailed += error => { failed = failed ?? error; zelk.Stop(); };
        zelk.Any += (sender, each) =>
        {
            BindingTest.Expect(each.Sequence == ++events, "event " + events + " comes next, not " + each.Sequence);
            BindingTest.Collect();
        };
        zelk.ChannelState += (sender, each) => { if (each.Up) Dial(each.Channel); };
        zelk.Connected += (sender, each) => { Step(each, "c"); each.Channel.Play(ZelkSound.Silence(100)); };
        zelk.Digit += (sender, each) => Step(each, each.Digit.ToString());
        zelk.PlayDone += (sender, each) => Step(each, "p");
        zelk.Disconnected += OnEnd;
        zelk.Run();
        if (failed != null) throw new Exception("a handler failed", failed);
        BindingTest.Expect(dialled >= 30 && dialled == ended, dialled + " calls begun, " + ended + " ended");
        Console.Out.WriteLine(dialled + " calls, " + events + " events, " + GC.CollectionCount(GC.MaxGeneration) + " collections");
    }

    void Dial(ZelkChannel channel)
    {
        steps[channel] = "";
        ++dialled;
        channel.Dial("0305551234");
    }

    void Step(ZelkEventArgs each, string step)
    {
        steps[each.Channel] += step;
        if (steps[each.Channel].Length == 5) each.Channel.Hangup();
    }

    void OnEnd(object sender, ZelkEventArgs each)
    {
        var all = steps[each.Channel];
        BindingTest.Expect(all.StartsWith("c") && all.Contains("p") && all.Replace("p", "") == "c12#", "every event of a call: " + all);
        BindingTest.Expect(each.Cause == 16 && each.Reason == "NORMAL_CLEARING", "cause " + each.Cause);
        ++ended;
        if (watch.Elapsed < time) Dial(each.Channel);
        else if (ended == dialled) zelk.Stop();
    }
}
