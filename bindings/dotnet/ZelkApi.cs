// SPDX-License-Identifier: GPL-2.0-only
//
// Voice calls on ISDN primary-rate trunks from .NET, through the ZelkApi64 library: the one file to add to a project.
// C# 7; .NET Framework and mono (library names mapped by a .config), .NET 5 and later (by a resolver).
//
// ZelkNative has the 24 functions of zelk/ZelkApi.h, ZelkQueueNative those of zelk/ZelkQueue.h; ZelkLibrary stands on both.
// Events come on a thread of their own, out of a queue of native code, so that no thread of the library ever waits for the
// garbage collector.
using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

namespace Zelk
{
    // ---- Constants of zelk/ZelkApi.h

    public enum ZelkError : uint
    {
        None = 0, BadChannel = 1, NoMemory = 2, FileOpen = 3, FileRead = 4, FileWrite = 5, FileClose = 6, BadFormat = 7,
        Conversion = 8
    }

    public enum ZelkEvent : uint
    {
        Dtmf = 0x101, PlayDone = 0x201, IncomingCall = 0x301, Connected = 0x302, Disconnected = 0x303, Alerting = 0x401,
        Proceeding = 0x402, Progress = 0x403, ChannelState = 0x501,
        Overflow = 0x10001 // the queue's own
    }

    public enum ZelkInfo : uint
    {
        SerialNo = 1, Cli = 2, Dli = 3, Rli = 4, Direction = 5, ChannelState = 6, CallType = 7, LineType = 257,
        OpenType = 258, FirmwareVer = 259, FirmwareDate = 260, BurnDate = 261, Trunk = 262, Timeslot = 263
    }

    public enum ZelkChannelState : uint { Unknown = 1, Down = 2, Ready = 3, InUse = 4 }

    public enum ZelkCallType : uint
    {
        Voice = 0, RedirectBusy = 1, RedirectNoReply = 2, RedirectUnconditional = 3, RedirectDeflected = 4,
        RedirectOutOfOrder = 5, RedirectForwarded = 6, RedirectUnknown = 7
    }

    public enum ZelkSampleFormat : uint { MuLaw = 1, ALaw = 2 }

    public enum ZelkSetInfo { AllowIncoming = 1 }

    public static class ZelkConstants
    {
        public const int MaxChannels = 1024, ChannelsPerTrunk = 30, SampleRate = 8000, BlockBytes = 160, BlockMs = 20,
            BytesPerMs = 8, RawHeaderBytes = 44, NumberLength = 31;
    }

    // ---- The 24 functions

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ZelkEventCallback(int channel, uint code, int param);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ZelkBlockCallback(uint channel, IntPtr data, uint length);

    /// <summary>The functions as they are; nothing is checked. Callbacks run on threads that serve a whole card, which wait
    /// while the collector works: for events use ZelkLibrary. Under mono callbacks need MONO_THREADS_SUSPEND=coop.</summary>
    public static class ZelkNative
    {
        internal const string Dll = "ZelkApi64.dll";
        private const CallingConvention C = CallingConvention.Cdecl;

        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)] public static extern bool ZELK_Init();
        [DllImport(Dll, CallingConvention = C)] public static extern void ZELK_Shutdown();
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELK_GetChannelCount();
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_OpenChannel(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern void ZELK_CloseChannel(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern uint ZELK_GetLastError(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern uint ZELK_GetChannelInfo(int channel, uint key);
        /// <summary>The text is the library's, and valid until the next request for the channel: read it at once, with
        /// Marshal.PtrToStringAnsi.</summary>
        [DllImport(Dll, CallingConvention = C)] public static extern IntPtr ZELK_GetChannelInfoString(int channel, uint key);
        [DllImport(Dll, CallingConvention = C)] public static extern uint ZELK_SetChannelInfo(int channel, int key, int value);
        [DllImport(Dll, CallingConvention = C, CharSet = CharSet.Ansi)]
        public static extern uint ZELK_SetChannelInfoString(int channel, int key, string value);
        [DllImport(Dll, CallingConvention = C, CharSet = CharSet.Ansi)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_Dial(int channel, string number, string callingNumber);
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_Answer(int channel);
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_Reject(int channel);
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_Hangup(int channel);
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_Transfer(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern IntPtr ZELK_DisconnectReasonToString(int cause);
        [DllImport(Dll, CallingConvention = C)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_PlayBuffer(int channel, byte[] data, uint length);
        [DllImport(Dll, CallingConvention = C, CharSet = CharSet.Ansi)] [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool ZELK_PlayFile(int channel, string path);
        [DllImport(Dll, CallingConvention = C)] public static extern uint ZELK_PlayTimeLeft(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern void ZELK_StopPlay(int channel);
        [DllImport(Dll, CallingConvention = C, CharSet = CharSet.Ansi)]
        public static extern uint ZELK_ConvertRawToWaveFile(string path, uint type);

        [DllImport(Dll, CallingConvention = C, EntryPoint = "ZELK_SetEventCallback")]
        private static extern void SetEventCallback(ZelkEventCallback callback);
        [DllImport(Dll, CallingConvention = C, EntryPoint = "ZELK_SetPlayCallback")]
        private static extern void SetPlayCallback(ZelkBlockCallback callback);
        [DllImport(Dll, CallingConvention = C, EntryPoint = "ZELK_SetRecordCallback")]
        private static extern void SetRecordCallback(ZelkBlockCallback callback);

        // The library may be inside a callback that was replaced, and nothing waits for it: none is ever collected.
        private static readonly List<Delegate> registered = new List<Delegate>();

        private static void Keep(Delegate callback)
        {
            // The library's threads hear no signals. Mono stops threads for a collection by a signal unless it is told to
            // have them stop by themselves: it would wait for a thread that came in by a callback, and for ever.
            if (callback != null && Type.GetType("Mono.Runtime") != null
                && Environment.GetEnvironmentVariable("MONO_THREADS_SUSPEND") != "coop")
                throw new InvalidOperationException("callbacks under mono need MONO_THREADS_SUSPEND=coop in the environment");
            lock (registered) registered.Add(callback);
        }

        public static void ZELK_SetEventCallback(ZelkEventCallback callback) { Keep(callback); SetEventCallback(callback); }
        public static void ZELK_SetPlayCallback(ZelkBlockCallback callback) { Keep(callback); SetPlayCallback(callback); }
        public static void ZELK_SetRecordCallback(ZelkBlockCallback callback) { Keep(callback); SetRecordCallback(callback); }

        internal static readonly string[] Names =
        {
            "ZELK_SetEventCallback", "ZELK_SetPlayCallback", "ZELK_SetRecordCallback", "ZELK_Init", "ZELK_Shutdown",
            "ZELK_GetChannelCount", "ZELK_OpenChannel", "ZELK_CloseChannel", "ZELK_GetLastError", "ZELK_GetChannelInfo",
            "ZELK_GetChannelInfoString", "ZELK_SetChannelInfo", "ZELK_SetChannelInfoString", "ZELK_Dial", "ZELK_Answer",
            "ZELK_Reject", "ZELK_Hangup", "ZELK_Transfer", "ZELK_DisconnectReasonToString", "ZELK_PlayBuffer",
            "ZELK_PlayFile", "ZELK_PlayTimeLeft", "ZELK_StopPlay", "ZELK_ConvertRawToWaveFile"
        };
    }

    // ---- The queue library

    [StructLayout(LayoutKind.Sequential)]
    public struct ZelkQueueEvent
    {
        public ulong Sequence;
        public long TimeUs; // since 1970-01-01 UTC
        public int Channel;
        public uint Event;
        public int Param;
        public uint Reserved;
    }

    /// <summary>The functions of zelk/ZelkQueue.h as they are.</summary>
    public static class ZelkQueueNative
    {
        internal const string Dll = "zelkqueue.dll";
        private const CallingConvention C = CallingConvention.Cdecl;
        public const int Stopped = -1, AlreadyStarted = -3, InitFailed = -4, NoMemory = -5, NoText = -6, Forever = -1;

        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_Start();
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_Stop();
        [DllImport(Dll, CallingConvention = C)]
        public static extern int ZELKQ_WaitEvents([Out] ZelkQueueEvent[] events, int room, int timeoutMs);
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_Wake();
        [DllImport(Dll, CallingConvention = C)]
        public static extern int ZELKQ_GetText(int channel, uint key, [Out] byte[] buffer, int size);
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_GetNumber(int channel, uint key, out uint value);
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_SetRing(int channel, int blocks);
        [DllImport(Dll, CallingConvention = C)]
        public static extern int ZELKQ_ReadBlocks(int channel, [Out] byte[] data, int blocks, out ulong lost);
        [DllImport(Dll, CallingConvention = C)]
        public static extern int ZELKQ_WaitBlocks(int blocks, [Out] int[] channels, int room, int timeoutMs);
        [DllImport(Dll, CallingConvention = C)] public static extern long ZELKQ_GetLost(int channel);
        [DllImport(Dll, CallingConvention = C)] public static extern int ZELKQ_GetVersion();

        internal static readonly string[] Names =
        {
            "ZELKQ_Start", "ZELKQ_Stop", "ZELKQ_WaitEvents", "ZELKQ_Wake", "ZELKQ_GetText", "ZELKQ_GetNumber",
            "ZELKQ_SetRing", "ZELKQ_ReadBlocks", "ZELKQ_WaitBlocks", "ZELKQ_GetLost", "ZELKQ_GetVersion"
        };
    }

    // ---- Failures

    /// <summary>The base of the failures of a file, of which Message begins with the name.</summary>
    public class ZelkException : Exception
    {
        public ZelkException(string file, string reason) : base(file.Length == 0 ? reason : file + ": " + reason)
        {
            File = file;
            Reason = reason;
        }

        public string File { get; }
        public string Reason { get; }
    }

    /// <summary>A library that cannot be loaded or started.</summary>
    public sealed class ZelkLibraryException : ZelkException
    {
        public ZelkLibraryException(string file, string reason) : base(file, reason) { }
    }

    /// <summary>A sound that cannot be read or played.</summary>
    public sealed class ZelkSoundException : ZelkException
    {
        public ZelkSoundException(string file, string reason) : base(file, reason) { }
    }

    /// <summary>A call that the library refused to place.</summary>
    public sealed class ZelkCallException : ZelkException
    {
        public ZelkCallException(string reason) : base("", reason) { }
    }

    // ---- Loading

    /// <summary>Loads native libraries by their paths, before the runtime looks for them by their names.</summary>
    internal static class ZelkLoader
    {
        private static readonly bool unix = Path.DirectorySeparatorChar == '/';
        private static readonly Dictionary<string, IntPtr> loaded = new Dictionary<string, IntPtr>();
        private static string first; // the library that this process uses: the queue library takes it by its name

        [DllImport("libdl.so.2")] private static extern IntPtr dlopen(string path, int flags);
        [DllImport("libdl.so.2")] private static extern IntPtr dlsym(IntPtr library, string name);
        [DllImport("libdl.so.2")] private static extern IntPtr dlerror();
        [DllImport("kernel32", CharSet = CharSet.Unicode, SetLastError = true)]
        private static extern IntPtr LoadLibraryW(string path);
        [DllImport("kernel32", CharSet = CharSet.Ansi)] private static extern IntPtr GetProcAddress(IntPtr library, string name);

#if NET5_0_OR_GREATER
        static ZelkLoader()
        {
            // What was loaded by its path is what a declaration means.
            NativeLibrary.SetDllImportResolver(typeof(ZelkLoader).Assembly, (name, assembly, search) =>
                loaded.TryGetValue(name, out var library) ? library : IntPtr.Zero);
        }
#endif

        internal static void LoadLibrary(string path)
        {
            lock (loaded)
            {
                var full = Path.GetFullPath(path);
                if (first != null && first != full)
                    throw new ZelkLibraryException(full, "this process has loaded " + first + " already, and can use one only");
                Load(ZelkNative.Dll, full, ZelkNative.Names);
                first = full;
            }
        }

        internal static void LoadQueue(string path, string beside)
        {
            var name = unix ? "libzelkqueue.so" : "zelkqueue.dll";
            path = path ?? Environment.GetEnvironmentVariable("ZELKQUEUE_LIBRARY");
            var neighbour = Path.Combine(Path.GetDirectoryName(Path.GetFullPath(beside)), name);
            if (path == null && File.Exists(neighbour)) path = neighbour;
            lock (loaded) Load(ZelkQueueNative.Dll, path == null ? name : Path.GetFullPath(path), ZelkQueueNative.Names);
        }

        // A runtime that looks into its own folders first may have found another copy there.
        internal static void CheckOnlyOne(string path)
        {
            const string maps = "/proc/self/maps";
            if (!unix || !File.Exists(maps)) return;
            var files = new HashSet<string>();
            foreach (var line in File.ReadAllLines(maps))
            {
                var at = line.IndexOf('/');
                if (at >= 0 && Path.GetFileName(line.Substring(at)) == "libZelkApi-64.so") files.Add(line.Substring(at));
            }
            if (files.Count > 1)
                throw new ZelkLibraryException(path, "the runtime took another copy: " + string.Join(" and ", files));
        }

        private static void Load(string dll, string path, string[] names)
        {
            if (Path.IsPathRooted(path)) CheckFile(path);
            var library = unix ? dlopen(path, 2 /* RTLD_NOW */) : LoadLibraryW(path);
            if (library == IntPtr.Zero)
                throw new ZelkLibraryException(path, unix ? Reason(path) : new System.ComponentModel.Win32Exception().Message);
            var missing = Array.FindAll(names, name =>
                (unix ? dlsym(library, name) : GetProcAddress(library, name)) == IntPtr.Zero);
            if (missing.Length > 0) throw new ZelkLibraryException(path, "does not export " + string.Join(", ", missing));
            loaded[dll] = library;
        }

        private static string Reason(string path)
        {
            var text = Marshal.PtrToStringAnsi(dlerror()) ?? "cannot be loaded";
            return text.StartsWith(path + ": ", StringComparison.Ordinal) ? text.Substring(path.Length + 2) : text;
        }

        private static void CheckFile(string path)
        {
            var head = new byte[4096];
            int count;
            long size;
            try
            {
                using (var file = File.OpenRead(path))
                {
                    count = file.Read(head, 0, head.Length);
                    size = file.Length;
                }
            }
            catch (Exception error) when (error is IOException || error is UnauthorizedAccessException)
            {
                throw new ZelkLibraryException(path, Directory.Exists(path) ? "is a folder"
                    : File.Exists(path) ? "cannot be read: " + error.Message : "no such file");
            }
            var bits = WordSize(head, count);
            if (bits == 0) throw new ZelkLibraryException(path, "is not a shared library of this system");
            if (bits != IntPtr.Size * 8)
                throw new ZelkLibraryException(path, "is a library of " + bits + " bits, and this process has " + IntPtr.Size * 8);
            // The table of sections stands last. The system's loader would crash.
            if (unix && BitConverter.ToInt64(head, 0x28) +
                BitConverter.ToUInt16(head, 0x3A) * BitConverter.ToUInt16(head, 0x3C) > size)
                throw new ZelkLibraryException(path, "is cut short");
        }

        private static int WordSize(byte[] head, int count)
        {
            if (count < 64) return 0;
            if (unix)
                return head[0] != 0x7F || head[1] != 'E' || head[2] != 'L' || head[3] != 'F' ? 0 : head[4] == 1 ? 32 : head[4] == 2 ? 64 : 0;
            var at = BitConverter.ToInt32(head, 0x3C);
            if (head[0] != 'M' || head[1] != 'Z' || at < 0 || at > count - 6 || head[at] != 'P' || head[at + 1] != 'E') return 0;
            var machine = BitConverter.ToUInt16(head, at + 4);
            return machine == 0x14C ? 32 : machine == 0x8664 || machine == 0xAA64 ? 64 : 0;
        }
    }

    // ---- Sound

    /// <summary>WAV files of 8000 Hz mono as A-law of ITU-T G.711, a byte a sample.</summary>
    public static class ZelkSound
    {
        /// <summary>A-law silence of this length.</summary>
        public static byte[] Silence(int milliseconds)
        {
            var sound = new byte[milliseconds * ZelkConstants.BytesPerMs];
            for (var at = 0; at < sound.Length; ++at) sound[at] = 0xD5;
            return sound;
        }

        public static byte[] Join(params byte[][] sounds)
        {
            using (var all = new MemoryStream())
            {
                foreach (var sound in sounds) all.Write(sound, 0, sound.Length);
                return all.ToArray();
            }
        }

        /// <summary>The sound of a WAV file (16-bit or 8-bit linear, A-law or mu-law). ZelkSoundException with the reason:
        /// not 8000 Hz mono, cut short, not a WAV file, or why it cannot be read.</summary>
        public static byte[] Read(string path)
        {
            byte[] data;
            try
            {
                data = File.ReadAllBytes(path);
            }
            catch (Exception error) when (error is IOException || error is UnauthorizedAccessException
                || error is ArgumentException || error is NotSupportedException)
            {
                throw new ZelkSoundException(path, error is FileNotFoundException || error is DirectoryNotFoundException
                    ? "cannot be read: no such file" : "cannot be read: " + error.Message);
            }
            var reason = Parse(data, out var tag, out var bits, out var start, out var size);
            if (reason != null) throw new ZelkSoundException(path, reason);
            var sound = new byte[bits == 16 ? size / 2 : size];
            for (var at = 0; at < sound.Length; ++at)
                sound[at] = tag == 6 ? data[start + at]
                    : Compress(tag == 7 ? MuLaw(data[start + at])
                    : bits == 8 ? (data[start + at] - 128) * 256 : BitConverter.ToInt16(data, start + 2 * at));
            return sound;
        }

        /// <summary>A sample of 16 bits as A-law.</summary>
        public static byte Compress(int sample)
        {
            var magnitude = Math.Min(Math.Abs(sample), 0x7FFF) >> 4;
            var segment = 0;
            while (magnitude >> (segment + 4) != 0) ++segment;
            var step = (segment > 1 ? magnitude >> (segment - 1) : magnitude) & 0x0F;
            return (byte)((segment << 4 | step) ^ (sample >= 0 ? 0xD5 : 0x55));
        }

        private static int MuLaw(int code)
        {
            code = ~code & 0xFF;
            var value = (((code & 0x0F) << 3) + 0x84) << ((code & 0x70) >> 4);
            return (code & 0x80) != 0 ? 0x84 - value : value - 0x84;
        }

        private static bool Is(byte[] data, int at, string name)
        {
            return at + 4 <= data.Length && Encoding.ASCII.GetString(data, at, 4) == name;
        }

        // Why the file cannot be played, null when it can.
        private static string Parse(byte[] data, out int tag, out int bits, out int start, out int size)
        {
            tag = bits = start = size = 0;
            if (!Is(data, 0, "RIFF") || (data.Length >= 12 && !Is(data, 8, "WAVE"))) return "is not a WAV file";
            for (long at = 12; at + 8 <= data.Length;)
            {
                var length = BitConverter.ToUInt32(data, (int)at + 4);
                var body = (int)at + 8;
                if (Is(data, (int)at, "fmt ") && tag == 0)
                {
                    if (length < 16 || body + 16 > data.Length) return "is cut short";
                    tag = BitConverter.ToUInt16(data, body);
                    bits = BitConverter.ToUInt16(data, body + 14);
                    var channels = BitConverter.ToUInt16(data, body + 2);
                    var rate = BitConverter.ToUInt32(data, body + 4);
                    if ((tag != 1 || (bits != 8 && bits != 16)) && tag != 6 && tag != 7)
                        return "has neither 8 or 16 bits linear, A-law nor mu-law (format " + tag + ", " + bits + " bits)";
                    if (rate != ZelkConstants.SampleRate || channels != 1)
                        return "is not 8000 Hz mono (" + rate + " Hz, " + channels + " channels)";
                }
                else if (Is(data, (int)at, "data") && tag != 0)
                {
                    start = body;
                    size = length > data.Length - body ? 0 : (int)length;
                    return length > data.Length - body ? "is cut short" : null;
                }
                at += 8 + (long)length + length % 2;
            }
            return "is cut short";
        }
    }

    // ---- Events

    /// <summary>What happened. What does not belong to the event is null, empty or 0.</summary>
    public sealed class ZelkEventArgs : EventArgs
    {
        public ZelkEvent Code { get; internal set; }
        /// <summary>Null with an overflow alone.</summary>
        public ZelkChannel Channel { get; internal set; }
        public DateTime TimeUtc { get; internal set; }
        public int Param { get; internal set; }
        public ulong Sequence { get; internal set; }
        /// <summary>Numbers of an offered call, read when the event was taken out.</summary>
        public string Calling { get; internal set; } = "";
        public string Called { get; internal set; } = "";
        public string Redirecting { get; internal set; } = "";
        /// <summary>ITU-T Q.850, null when the network gave none.</summary>
        public int? Cause => (Code == ZelkEvent.Disconnected || Code == ZelkEvent.Progress) && Param >= 0 ? Param : (int?)null;
        /// <summary>The cause's name, of Disconnected.</summary>
        public string Reason => Code == ZelkEvent.Disconnected ? ZelkLibrary.Reason(Param) : "";
        public char Digit => Code == ZelkEvent.Dtmf ? (char)Param : '\0';
        /// <summary>Of ChannelState.</summary>
        public bool Up => Code == ZelkEvent.ChannelState && Param == 1;
        /// <summary>Events that nobody took out in time, of Overflow.</summary>
        public int Lost => Code == ZelkEvent.Overflow ? Param : 0;
    }

    // ---- Channels

    /// <summary>A voice channel; ZelkLibrary makes them. Thread: any. ObjectDisposedException after the shut-down.</summary>
    public sealed class ZelkChannel
    {
        internal ZelkChannel(ZelkLibrary library, int number)
        {
            Library = library;
            Number = number;
        }

        public ZelkLibrary Library { get; }
        public int Number { get; }

        public override string ToString() => "channel " + Number;

        /// <summary>Places a call. callingNumber: null for the one given last on this channel. ArgumentException for what
        /// the line would get otherwise than written; ZelkCallException when the channel has a call or its trunk places
        /// none.</summary>
        public void Dial(string number, string callingNumber = null)
        {
            CheckNumber(number, nameof(number), false);
            if (callingNumber != null) CheckNumber(callingNumber, nameof(callingNumber), true);
            if (!Library.Use(() => ZelkNative.ZELK_Dial(Number, number, callingNumber)))
                throw new ZelkCallException(this + " cannot dial " + number + ": it has a call, or its trunk places none");
        }

        /// <summary>ArgumentException for more than 31 characters, and for others than digits, *, # and +.</summary>
        public static void CheckNumber(string number, string name, bool mayBeEmpty)
        {
            if (number == null) throw new ArgumentNullException(name);
            if (number.Length == 0 && !mayBeEmpty) throw new ArgumentException("the number is empty", name);
            if (number.Length > ZelkConstants.NumberLength)
                throw new ArgumentException("the number " + number + " has " + number.Length + " characters, "
                    + ZelkConstants.NumberLength + " reach the line", name);
            foreach (var digit in number)
                if ("0123456789*#+".IndexOf(digit) < 0)
                    throw new ArgumentException("the number " + number + " has other characters than digits, *, # and +", name);
        }

        public void Answer() => Library.Use(() => ZelkNative.ZELK_Answer(Number));
        /// <summary>False, with nothing done, when the call is connected.</summary>
        public bool Reject() => !Library.Use(() => ZelkNative.ZELK_Reject(Number));
        public void Hangup() => Library.Use(() => ZelkNative.ZELK_Hangup(Number));
        /// <summary>Not available: false.</summary>
        public bool Transfer() => Library.Use(() => ZelkNative.ZELK_Transfer(Number));
        public void Open() => Library.Use(() => ZelkNative.ZELK_OpenChannel(Number));
        public void Close() => Library.Use(() => { ZelkNative.ZELK_CloseChannel(Number); return true; });
        public ZelkError LastError => (ZelkError)Library.Use(() => ZelkNative.ZELK_GetLastError(Number));
        public ZelkChannelState State => (ZelkChannelState)Value(ZelkInfo.ChannelState);
        public ZelkCallType CallType => (ZelkCallType)Value(ZelkInfo.CallType);
        public bool SetInfo(ZelkSetInfo key, int value) =>
            Library.Use(() => ZelkNative.ZELK_SetChannelInfo(Number, (int)key, value)) == 1;
        /// <summary>Reserved: does nothing and returns 0.</summary>
        public uint SetText(int key, string value) => Library.Use(() => ZelkNative.ZELK_SetChannelInfoString(Number, key, value));

        /// <summary>A copy of the text of a key, null for one that has none.</summary>
        public string Text(ZelkInfo key)
        {
            var buffer = new byte[256];
            var length = Library.Use(() => ZelkQueueNative.ZELKQ_GetText(Number, (uint)key, buffer, buffer.Length));
            if (length == ZelkQueueNative.NoText) return null;
            ZelkLibrary.Check(length);
            return Encoding.GetEncoding(28591).GetString(buffer, 0, Math.Min(length, buffer.Length - 1));
        }

        public uint Value(ZelkInfo key)
        {
            uint value = 0;
            ZelkLibrary.Check(Library.Use(() => ZelkQueueNative.ZELKQ_GetNumber(Number, (uint)key, out value)));
            return value;
        }

        /// <summary>Queues A-law behind what is queued; PlayDone comes once for all that was queued back to back.</summary>
        public void Play(byte[] sound)
        {
            if (sound == null) throw new ArgumentNullException(nameof(sound));
            if (!Library.Use(() => ZelkNative.ZELK_PlayBuffer(Number, sound, (uint)sound.Length)))
                throw new ZelkSoundException("", this + " has no memory for " + sound.Length + " bytes of sound");
        }

        /// <summary>Queues a WAV file of 8000 Hz mono. ZelkSoundException with the reason for one that cannot be played.</summary>
        public void PlayFile(string path)
        {
            if (path == null) throw new ArgumentNullException(nameof(path));
            var error = ZelkError.None;
            if (Library.Use(() =>
            {
                if (ZelkNative.ZELK_PlayFile(Number, path)) return true;
                error = (ZelkError)ZelkNative.ZELK_GetLastError(Number);
                return false;
            })) return;
            ZelkSound.Read(path); // knows more of what is wrong
            throw new ZelkSoundException(path, "cannot be played: " + error);
        }

        /// <summary>Milliseconds queued, at least 1 until PlayDone.</summary>
        public uint PlayTimeLeft => Library.Use(() => ZelkNative.ZELK_PlayTimeLeft(Number));
        /// <summary>Drops what is queued and silences what waits for the line. No PlayDone follows.</summary>
        public void Stop() => Library.Use(() => { ZelkNative.ZELK_StopPlay(Number); return true; });

        /// <summary>Keeps received sound from now on, at most so many blocks of 20 ms; 0: none any more.</summary>
        public void SetRing(int blocks) => ZelkLibrary.Check(Library.Use(() => ZelkQueueNative.ZELKQ_SetRing(Number, blocks)));

        /// <summary>Takes whole blocks of 160 A-law bytes out of the ring, without waiting. lost: blocks in front of the first
        /// that found no room. The number of bytes.</summary>
        public int ReadSound(byte[] sound, out ulong lost)
        {
            ulong missing = 0;
            var count = Library.Use(() =>
                ZelkQueueNative.ZELKQ_ReadBlocks(Number, sound, sound.Length / ZelkConstants.BlockBytes, out missing));
            lost = missing;
            return ZelkLibrary.Check(count) * ZelkConstants.BlockBytes;
        }

        /// <summary>Runs the action on the thread of the events when the time is over; Dispose of the result cancels.</summary>
        public IDisposable After(TimeSpan time, Action action) => Library.After(time, action);
    }

    // ---- The library

    /// <summary>The library, started: one at a time in a process. Dispose shuts it down. Events come one after the other, on
    /// a thread of their own; an exception of a handler goes to HandlerFailed, or to stderr, and the events go on.</summary>
    public sealed class ZelkLibrary : IDisposable
    {
        private static ZelkLibrary current;
        private static readonly object currentLock = new object();

        private readonly object gate = new object();
        private int inside; // calls under way
        private bool closed;
        private readonly Thread thread;
        private readonly ManualResetEvent stop = new ManualResetEvent(false);
        private readonly object timesLock = new object();
        private readonly List<Timing> times = new List<Timing>();

        public event EventHandler<ZelkEventArgs> IncomingCall, Connected, Disconnected, Digit, PlayDone, Alerting, Proceeding,
            Progress, ChannelState, Overflow;
        /// <summary>Every event, before the one of its name.</summary>
        public event EventHandler<ZelkEventArgs> Any;
        public event Action<Exception> HandlerFailed;

        /// <summary>path: the library's file, ZELKAPI_LIBRARY when null; log and ini stand beside it. queuePath: the queue
        /// library; when null ZELKQUEUE_LIBRARY, one beside the library, or the system's. No event comes before Begin or
        /// Run. ZelkLibraryException names the file and the reason; InvalidOperationException when there is a
        /// ZelkLibrary already.</summary>
        public ZelkLibrary(string path = null, string queuePath = null, bool openChannels = true)
        {
            path = path ?? Environment.GetEnvironmentVariable("ZELKAPI_LIBRARY");
            if (string.IsNullOrEmpty(path))
                throw new ZelkLibraryException("ZELKAPI_LIBRARY", "is not set, and no path was given");
            lock (currentLock)
            {
                if (current != null) throw new InvalidOperationException("a ZelkLibrary is in use already in this process");
                ZelkLoader.LoadLibrary(path);
                ZelkLoader.LoadQueue(queuePath, path);
                Start(path);
                current = this;
            }
            var channels = new ZelkChannel[ChannelCount()];
            for (var number = 0; number < channels.Length; ++number)
            {
                channels[number] = new ZelkChannel(this, number);
                if (openChannels) channels[number].Open();
            }
            Channels = channels;
            thread = new Thread(TakeEvents) { Name = "zelk-events", IsBackground = true };
        }

        // The runtime looks for what a method calls when it compiles the method, which must be after the loading.
        [MethodImpl(MethodImplOptions.NoInlining)]
        private static void Start(string path)
        {
            ZelkNative.ZELK_GetChannelCount();
            ZelkQueueNative.ZELKQ_GetVersion();
            ZelkLoader.CheckOnlyOne(path);
            var result = ZelkQueueNative.ZELKQ_Start();
            if (result == ZelkQueueNative.InitFailed) throw new ZelkLibraryException(path, "ZELK_Init failed");
            Check(result);
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        private static int ChannelCount() => ZelkNative.ZELK_GetChannelCount();

        public IReadOnlyList<ZelkChannel> Channels { get; }

        /// <summary>ArgumentOutOfRangeException for a number that no channel has.</summary>
        public ZelkChannel Channel(int number)
        {
            if (number < 0 || number >= Channels.Count)
                throw new ArgumentOutOfRangeException(nameof(number), "there is no channel " + number + ": there are " + Channels.Count);
            return Channels[number];
        }

        /// <summary>The name of an ITU-T Q.850 cause, REASON_UNKNOWN for any other number.</summary>
        public static string Reason(int cause) => Marshal.PtrToStringAnsi(ZelkNative.ZELK_DisconnectReasonToString(cause));

        /// <summary>Writes a WAV header over the first 44 bytes of a raw recording, which left them free.</summary>
        public void RawToWave(string path, ZelkSampleFormat format = ZelkSampleFormat.ALaw)
        {
            var result = (ZelkError)Use(() => ZelkNative.ZELK_ConvertRawToWaveFile(path, (uint)format));
            if (result != ZelkError.None) throw new ZelkSoundException(path, "cannot be made a WAV file: " + result);
        }

        /// <summary>Has the events come; those from before are not lost. Register handlers before.</summary>
        public void Begin()
        {
            lock (gate)
                if (thread.ThreadState.HasFlag(ThreadState.Unstarted)) thread.Start();
        }

        /// <summary>Begin, and waits for Stop, Ctrl-C or SIGTERM. ready: a line to print when events come and Ctrl-C is
        /// heard. Under mono a program without a terminal hears both when Mono.Posix is installed.</summary>
        public void Run(string ready = null)
        {
            ConsoleCancelEventHandler end = (sender, arguments) => { arguments.Cancel = true; Stop(); };
            var signals = HearSignals();
            if (signals == null) Console.CancelKeyPress += end;
            try
            {
                if (ready != null) Console.Out.WriteLine(ready);
                Begin();
                stop.WaitOne();
            }
            finally
            {
                if (signals == null) Console.CancelKeyPress -= end;
                else foreach (var signal in signals) signal.Dispose();
            }
        }

#if NET6_0_OR_GREATER
        private List<IDisposable> HearSignals()
        {
            Action<PosixSignalContext> end = signal => { signal.Cancel = true; Stop(); };
            return new List<IDisposable>
            {
                PosixSignalRegistration.Create(PosixSignal.SIGINT, end), PosixSignalRegistration.Create(PosixSignal.SIGTERM, end)
            };
        }
#else
        // Mono's own, where it is installed. Null elsewhere.
        private List<IDisposable> HearSignals()
        {
            const string assembly = ", Mono.Posix, Version=4.0.0.0, Culture=neutral, PublicKeyToken=0738eb9f132ed756";
            var signalType = Type.GetType("Mono.Unix.UnixSignal" + assembly);
            var numberType = Type.GetType("Mono.Unix.Native.Signum" + assembly);
            if (signalType == null || numberType == null) return null;
            var heard = new List<IDisposable>();
            foreach (var number in new[] { 2, 15 }) // SIGINT, SIGTERM
            {
                var signal = (WaitHandle)Activator.CreateInstance(signalType, Enum.ToObject(numberType, number));
                heard.Add(signal);
                new Thread(() =>
                {
                    try
                    {
                        if (signal.WaitOne()) Stop();
                    }
                    catch (ObjectDisposedException)
                    {
                        // Run has ended in another way
                    }
                }) { Name = "zelk-signal", IsBackground = true }.Start();
            }
            return heard;
        }
#endif

        /// <summary>Ends Run, from any thread or handler.</summary>
        public void Stop() => stop.Set();

        /// <summary>Runs the action on the thread of the events when the time is over; Dispose of the result cancels.</summary>
        public IDisposable After(TimeSpan time, Action action)
        {
            var timing = new Timing(Now + (long)Math.Ceiling(time.TotalMilliseconds), action);
            lock (timesLock) times.Add(timing);
            if (Thread.CurrentThread != thread) ZelkQueueNative.ZELKQ_Wake();
            return timing;
        }

        /// <summary>Shuts down; calls in progress are dropped. Also inside a handler; no event comes any more then.</summary>
        public void Dispose()
        {
            lock (gate)
            {
                if (closed) return;
                closed = true;
                while (inside > 0) Monitor.Wait(gate);
            }
            ZelkQueueNative.ZELKQ_Stop();
            stop.Set();
            if (Thread.CurrentThread != thread && !thread.ThreadState.HasFlag(ThreadState.Unstarted)) thread.Join();
            lock (currentLock) current = null;
        }

        // Keeps the shut-down waiting while the library is called.
        internal T Use<T>(Func<T> call)
        {
            lock (gate)
            {
                if (closed) throw new ObjectDisposedException(nameof(ZelkLibrary));
                ++inside;
            }
            try
            {
                return call();
            }
            finally
            {
                lock (gate)
                    if (--inside == 0) Monitor.PulseAll(gate);
            }
        }

        internal static int Check(int result)
        {
            if (result >= 0) return result;
            if (result == ZelkQueueNative.Stopped) throw new ObjectDisposedException(nameof(ZelkLibrary));
            if (result == ZelkQueueNative.NoMemory) throw new OutOfMemoryException();
            throw new InvalidOperationException("the queue library said " + result);
        }

        private sealed class Timing : IDisposable
        {
            internal readonly long Due;
            internal volatile Action Action;

            internal Timing(long due, Action action)
            {
                Due = due;
                Action = action;
            }

            public void Dispose() => Action = null;
        }

        private static long Now => System.Diagnostics.Stopwatch.GetTimestamp() * 1000 / System.Diagnostics.Stopwatch.Frequency;

        // The actions whose time is over are run; how long to wait for the next.
        private int RunDue()
        {
            for (;;)
            {
                Timing next = null;
                lock (timesLock)
                {
                    times.RemoveAll(each => each.Action == null);
                    foreach (var each in times)
                        if (next == null || each.Due < next.Due) next = each;
                    if (next == null) return ZelkQueueNative.Forever;
                    if (next.Due > Now) return (int)Math.Min(next.Due - Now, int.MaxValue);
                    times.Remove(next);
                }
                var action = next.Action;
                if (action != null) Guard(action);
            }
        }

        private void TakeEvents()
        {
            var events = new ZelkQueueEvent[64];
            for (;;)
            {
                var wait = RunDue();
                var count = ZelkQueueNative.ZELKQ_WaitEvents(events, events.Length, wait);
                if (count < 0) return; // shut down
                for (var at = 0; at < count && !closed; ++at)
                {
                    var each = events[at];
                    Guard(() => Tell(each));
                    RunDue();
                }
            }
        }

        private void Guard(Action action)
        {
            try
            {
                action();
            }
            catch (ObjectDisposedException) when (closed)
            {
                // shut down meanwhile
            }
            catch (Exception error)
            {
                var report = HandlerFailed;
                if (report != null) report(error);
                else Console.Error.WriteLine("zelk: a handler failed: " + error);
            }
        }

        private EventHandler<ZelkEventArgs> HandlerOf(ZelkEvent code)
        {
            switch (code)
            {
                case ZelkEvent.IncomingCall: return IncomingCall;
                case ZelkEvent.Connected: return Connected;
                case ZelkEvent.Disconnected: return Disconnected;
                case ZelkEvent.Dtmf: return Digit;
                case ZelkEvent.PlayDone: return PlayDone;
                case ZelkEvent.Alerting: return Alerting;
                case ZelkEvent.Proceeding: return Proceeding;
                case ZelkEvent.Progress: return Progress;
                case ZelkEvent.ChannelState: return ChannelState;
                case ZelkEvent.Overflow: return Overflow;
                default: return null; // of a later version of the library
            }
        }

        private void Tell(ZelkQueueEvent each)
        {
            var arguments = new ZelkEventArgs
            {
                Code = (ZelkEvent)each.Event,
                Channel = each.Channel < 0 ? null : Channel(each.Channel),
                TimeUtc = new DateTime(1970, 1, 1, 0, 0, 0, DateTimeKind.Utc).AddTicks(each.TimeUs * 10),
                Param = each.Param,
                Sequence = each.Sequence
            };
            if (arguments.Code == ZelkEvent.IncomingCall)
            {
                arguments.Calling = arguments.Channel.Text(ZelkInfo.Cli) ?? "";
                arguments.Called = arguments.Channel.Text(ZelkInfo.Dli) ?? "";
                arguments.Redirecting = arguments.Channel.Text(ZelkInfo.Rli) ?? "";
            }
            try
            {
                Any?.Invoke(this, arguments);
            }
            finally
            {
                HandlerOf(arguments.Code)?.Invoke(this, arguments);
            }
        }
    }
}
