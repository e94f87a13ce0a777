/**
 * @file libvnk.h
 * Host library for networked RF receivers and spectrum analysers.
 *
 * A program finds units on its network, opens them, programs them, and takes what they measure as frames:
 *
 *     uint32_t device, stream;
 *     vnkIQRecord* record = NULL;
 *     vnkAddDeviceAddress("127.0.0.1");
 *     vnkOpenDevice(0, &device);
 *     vnkCreateIQStream(&stream, 98.1e6f, 200e3f, -30.0f);
 *     vnkAttachStreamToDevice(stream, device);
 *     while (vnkGetNextIQ(stream, &record, 2000) == 0) {
 *         use(record->samples, record->sampleCount);
 *         vnkFreeIQ(&record);
 *     }
 *     vnkClose(&stream);
 *     vnkClose(&device);
 *
 * Conventions that hold for every function here:
 *
 * - **Status.** 0 is success, negative an error, positive "nothing went wrong and nothing was delivered".
 *   vnkGetTextForStatus names them. A status says that something failed; the texts of what and why are read
 *   with vnkGetDetailedStatus, vnkGetNextStatus (both for the calling thread only) and
 *   vnkGetVerboseInternalErrorState. "-2" below means: the interface is not initialised.
 * - **Lifetime.** The interface is up from the moment the library is loaded, with a count of 1. vnkInitAPI and
 *   vnkShutdownAPI count up and down; handles end with the state. The library stays in the process after
 *   dlclose (it is linked that way, since its threads may still run); a later dlopen finds the state as it was.
 * - **Handles** are random 32-bit numbers, one space for devices, streams and processors. 0xFFFFFFFF names
 *   nothing; 0 is an ordinary handle.
 * - **Texts** that the library hands out through a `char**` are the caller's and go back through
 *   vnkDisposeString. Such a function first frees what the variable holds, so initialise it to NULL and use it
 *   again without freeing in between (vnkQuerySCPI alone overwrites it). A null text argument counts as empty.
 * - **Parameters** cross as texts in a JSON-like form: `{"FCentreHz":98100000.000000,"adaptStep":true}`. Keys
 *   name the unit. The vnkAdd functions build such a text, the vnkRead functions look into it. Numbers with a
 *   "." or an "e" are floats; a negative number without either reads as a text, so write -30.0 and not -30.
 * - **Units.** Hertz and seconds as 32-bit float, dBm and dB as 32-bit float, time-outs in milliseconds,
 *   timestamps in nanoseconds since 1970. IQ samples are in square roots of milliwatts: 20 log10 of a magnitude
 *   is dBm.
 * - **Threads.** Any function may be called from any thread, and one thread may close what another uses: the
 *   object lives until the last call on it returns. Only vnkInitAPI and vnkShutdownAPI must not race with other
 *   calls. Functions that talk to a unit block for the time told with them.
 * - **Exceptions.** Nothing is caught at this boundary. Any function that allocates can pass std::bad_alloc.
 *   vnkOpenDevice can pass an exception of the library's own when a unit serves correction data that contradict
 *   themselves; a C program then ends. Functions that connect or ask a unit
 *   (vnkExamineDevice, vnkOpenDevice, vnkResetDeviceConnection, vnkQuerySCPI, and vnkGetParameters and
 *   vnkSetParameters on a device), vnkAttachStreamToFile and vnkConvertBasebandFileToWavFile pass std::system_error
 *   when the system has no thread to give. vnkSetStreamOutputFile and vnkConvertBasebandFileToWavFile pass
 *   std::invalid_argument and std::out_of_range for some names, see there.
 * - **The host's process** is left alone: its signal handling, locale and rand() are not touched.
 */
#ifndef LIBVNK_H
#define LIBVNK_H

#include <stdbool.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VNK_API __attribute__((visibility("default")))
#else
#define VNK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Names nothing; what vnkClose writes into a handle variable. */
#define VNK_INVALID_HANDLE 0xFFFFFFFFu

/**
 * One frame of IQ samples. Allocated by the library, one for each frame delivered, and given back with
 * vnkFreeIQ. Read, do not write.
 */
typedef struct vnkIQRecord {
    int32_t status;        /**< always 0 */
    uint32_t sequence;     /**< number of the frame; a jump tells of lost samples */
    uint64_t timestamp;    /**< of the first sample, nanoseconds since 1970 */
    double centreHz;       /**< frequency at 0 Hz of the samples; 0 in direct digitization */
    float bandwidthHz;     /**< usable bandwidth */
    float sampleRateHz;    /**< complex samples per second */
    uint8_t sequenceGap;   /**< 1: a gap was seen since the last record of this stream */
    uint8_t subOptimal;    /**< 1: a level outside the good window was seen since the last record */
    uint32_t sampleCount;  /**< complex samples */
    const float* samples;  /**< I, Q, I, Q..., sqrt(mW); valid until the record is given back */
    char* extras;          /**< a record text with more about the frame ("status"), or NULL */
} vnkIQRecord;

/**
 * One spectrum. Allocated by the library, one for each frame delivered, and given back with vnkFreeSpectrum. Read, do
 * not write.
 */
typedef struct vnkSpectrumRecord {
    int32_t status;        /**< always 0 */
    uint32_t sequence;     /**< number of the frame */
    uint64_t timestamp;    /**< of the first sample behind the spectrum, nanoseconds since 1970 */
    uint64_t duration;     /**< the time that the spectrum covers, nanoseconds */
    double minimumHz;      /**< lower edge; the first point lies there */
    double maximumHz;      /**< upper edge */
    float rbwHz;           /**< resolution bandwidth */
    uint32_t pointCount;   /**< bins, in ascending frequency */
    const float* points;   /**< levels, usually dBm; valid until the record is given back */
    char* extras;          /**< a record text with more about the frame, or NULL */
    uint32_t traceCount;   /**< further traces of the frame */
    const float* const* traces; /**< traceCount arrays of pointCount levels each, or NULL */
} vnkSpectrumRecord;

/**
 * One frame of audio-rate channels. Allocated by the library, one for each frame delivered, and given back with
 * vnkFreeBaseband. Read, do not write.
 */
typedef struct vnkBasebandRecord {
    uint32_t sequence;          /**< number of the frame */
    uint64_t timestamp;         /**< of the first sample, nanoseconds since 1970 */
    float sampleRateHz;         /**< samples per second of each channel */
    float bandwidthHz;          /**< bandwidth of the frame */
    uint32_t channelCount;
    uint32_t samplesPerChannel; /**< of the last channel; 0 without channels */
    const float* const* channels; /**< channelCount arrays; valid until the record is given back */
    char* extras;               /**< a record text with more about the frame, or NULL */
} vnkBasebandRecord;

/** @name Lifetime and version
 * @{ */

/**
 * Counts one more user; builds the state when there is none.
 * @return 0.
 * Must not race with any other call.
 */
VNK_API int32_t vnkInitAPI(void);

/**
 * Counts one user less. At a count of 1 the state ends: streams are detached (each up to 5 s while its capture
 * stops), recordings completed (each until all its frames are on disk), devices closed, all handles become invalid.
 * Frame records that the caller still holds may be given back after a later vnkInitAPI. A call at a count of 0 wraps
 * the count; the next vnkInitAPI brings it back to 0.
 * @return 0.
 * Must not race with any other call.
 */
VNK_API int32_t vnkShutdownAPI(void);

/**
 * Name, version, platform and build time, as "libVNK - 1.4x.8DEV (x64) Jun 12 2023 14:14:57". Needs no
 * initialised interface.
 * @return A text for vnkDisposeString.
 */
VNK_API char* vnkGetVersion(void);

/**
 * Frees a text that the library has handed out and writes NULL into the variable. A null address and a variable
 * that holds NULL are left alone. Needs no initialised interface.
 */
VNK_API void vnkDisposeString(char** text);

/**
 * @return The constant text "unimplemented", or "API not initialized"; not to be freed.
 */
VNK_API const char* vnkGetPlatformIDString(void);

/* Declared parts of the interface with no function behind them. The first five return -1 (-2 when the interface
 * is not initialised), the next three always -1, the last the constant text "unimplemented". */
VNK_API int32_t vnkAddTriggerCondition(void);
VNK_API int32_t vnkGetAvailableTriggerTemplates(void);
VNK_API int32_t vnkGetCalibrationCertificate(void);
VNK_API int32_t vnkRuntimeCalibrate(void);
VNK_API int32_t vnkTestBandwidth(void);
VNK_API int32_t vnkReadLatestTrigger(void);
VNK_API int32_t vnkRemoveTriggerCondition(void);
VNK_API int32_t vnkSetTriggeredCaptureBufferTimes(void);
VNK_API const char* vnkReadCurrentTriggerCondition(void);

/** @} */

/** @name Status and error logs
 * @{ */

/**
 * @return The constant text of a status, never NULL, not to be freed; "Error code undefined" and "Warning code
 * undefined" for numbers outside the table. Needs no initialised interface.
 */
VNK_API const char* vnkGetTextForStatus(int32_t status);

/**
 * Takes the oldest unread status of the calling thread; statuses pile up while nobody reads them.
 * @return That status, 0 when there is none; -2.
 */
VNK_API int32_t vnkGetNextStatus(void);

/**
 * Takes the newest detail text of the calling thread, as "T-0.0012sec: ...".
 * @return A text for vnkDisposeString: the detail, or "no information" when there is none or it was taken already.
 * When the interface is not initialised the block returned holds the address of a constant text and not
 * characters; give it back in the same way.
 */
VNK_API char* vnkGetDetailedStatus(void);

/**
 * Drains the library's internal log (the 1000 newest records, progress notes of code 1000 among them), newest
 * first. Every call empties the log, whatever the count.
 * @param maximumEntries How many records the text holds at most; the rest is dropped.
 * @return A text for vnkDisposeString; NULL when the count is 0 or the interface is not initialised.
 */
VNK_API char* vnkGetVerboseInternalErrorState(uint32_t maximumEntries);

/**
 * @return A header line without entries, for vnkDisposeString; NULL when the interface is not initialised. Nothing in
 * the library writes to this trace.
 */
VNK_API char* vnkGetDebugTrace(void);

/** @} */

/** @name Devices
 * @{ */

/**
 * Adds an address to the list of known ones. Give the host alone ("192.168.1.20", "receiver.lab"): the ports are
 * fixed, and a text such as "TCP/IP:host" cannot be examined or opened.
 * @return 0; -3 the address is known already; -2.
 */
VNK_API int32_t vnkAddDeviceAddress(const char* address);

/**
 * Counts the known addresses, and with `searchNetwork` equal to 1 first searches for units: a broadcast on every
 * adapter (UDP 18331, to a.b.c.255 and a.b.255.255), then waiting until the line has been quiet for a second, 30 s at
 * the most. Units found are added to the known addresses; an index stays valid for the life of the state.
 * @param count Receives the number of all known addresses; may be NULL.
 * @return 0, also when the search met difficulties (they are in the internal log, code -5001); -2.
 */
VNK_API int32_t vnkEnumerateDevices(uint32_t* count, uint8_t searchNetwork);

/**
 * Describes a known address: the schema of the open device; what discovery told; or the answer of the unit, which is
 * asked for it and may take 2 s for each of two connections and 1 s for the reply.
 * A name server's own limit comes on top of these times.
 * @return 0; -4 null address; -5 index out of range, or a unit that cannot be reached (status -6 is then in the
 * thread's queue); -2. `*description` is NULL on failure.
 */
VNK_API int32_t vnkExamineDevice(uint32_t index, char** description);

/**
 * Opens the unit at a known address; an address that is open already gives the same handle. Asks the unit who it
 * is, connects to its ports 37001 and 37000, reads its state and correction data and resets it: some seconds, and
 * longer by one second for each question that the unit leaves unanswered.
 * @param handle Receives the handle, 0xFFFFFFFF on failure.
 * A name server's own limit comes on top; and a unit with much correction data that answers each read late can
 * hold this call for very long (65,535 vectors at 0.9 s are 16 hours). The process can end meanwhile.
 * @return 0; -4 null address; -7 index out of range, unit unreachable, of an unknown model or in a wrong state (the
 * internal log tells); -2. May pass an exception, see the top of this file.
 */
VNK_API int32_t vnkOpenDevice(uint32_t index, uint32_t* handle);

/**
 * Connects to the unit anew after its link was lost (status -86). Streams stay attached and go on.
 * Blocks for up to 2 s until the receiver's thread has stopped, then as long as an open.
 * @return 0; -35 unknown handle; -45 no connection; -2. May pass an exception, see the top of this file.
 */
VNK_API int32_t vnkResetDeviceConnection(uint32_t handle);

/**
 * Closes a device, stream or processor and writes 0xFFFFFFFF into the variable. A stream is detached first, which
 * waits until its capture has stopped, 5 s at the most, and its recording is completed, which waits for the disk. A
 * device with streams attached goes on until they have been detached or closed. A processor goes on while streams of
 * its output are open, and ends with the last of them or with the stream that it takes its frames from; its end waits
 * for its thread as vnkDetachProcessor does. Frame records that were delivered stay valid until they are given back.
 * @return 0; -4 null address; -8 the variable holds 0xFFFFFFFF; -21 unknown handle, the variable stays; -2.
 */
VNK_API int32_t vnkClose(uint32_t* handle);

/**
 * Sends one command to the unit. Nothing keeps it apart from the library's own commands. Line feeds inside the text
 * pass as they are.
 * A unit that reads no more blocks this call once the system's buffers are full; vnkResetDeviceConnection from
 * another thread frees it.
 * @return 0; -35 unknown handle; -36 not sent (the text is empty, ends in "?", or the link is broken); -2.
 */
VNK_API int32_t vnkSendSCPI(uint32_t handle, const char* command);

/**
 * Sends one query and waits for its reply, by default for 1000 ms (the device parameter SCPIQueryTimeout). The reply is
 * what came first, as it came, line end included. With several threads asking at once replies may mix.
 * @param reply Overwritten, not freed first; may be NULL.
 * @return 0; -35 unknown handle; -37 no reply in time, a text without "?", or a broken link (`*reply` is then left
 * alone); -2.
 */
VNK_API int32_t vnkQuerySCPI(uint32_t handle, const char* query, char** reply);

/** @} */

/** @name Parameter texts
 * @{ */

/* Add functions: parse the text (NULL counts as empty), set one key, and put the new text into the variable.
 * They return 0; -4 for a null address; -2. No shared state is touched. */
VNK_API int32_t vnkAddFCentre(char** parameters, float centreHz);
VNK_API int32_t vnkAddIFBWHz(char** parameters, float bandwidthHz);
VNK_API int32_t vnkAddFMinMax(char** parameters, float minimumHz, float maximumHz);
VNK_API int32_t vnkAddRBWHz(char** parameters, float rbwHz);
/** Key "WindowFn": rectangular, gaussian, hann, hamming, cosine, lanczos, bartlett, bartletthann, nuttall,
 * blackmanharris, blackmannuttall or flattop. */
VNK_API int32_t vnkAddWindowType(char** parameters, const char* name);
/** Key "RefdBm": the greatest power expected, in dBm; sets gain and attenuation. */
VNK_API int32_t vnkAddRefLeveldBm(char** parameters, float leveldBm);
/** Key "captureSec": length of a finite capture in seconds, 120 at the most; 0 is endless. */
VNK_API int32_t vnkAddIQCaptureSec(char** parameters, float seconds);
VNK_API int32_t vnkAddNumericParameter(char** parameters, const char* key, float value);
/** A double quote inside the value breaks the text form when it is parsed again. */
VNK_API int32_t vnkAddTextParameter(char** parameters, const char* key, const char* value);
VNK_API int32_t vnkAddBooleanParameter(char** parameters, const char* key, uint8_t value);

/* Read functions: the variable is not changed. They return 0; -4 for a null address of the text or of the output;
 * -13 when the key is missing or of another kind (the output of a number is then untouched, a text output NULL);
 * -2. Any number reads as a float. A text output is first freed. */
VNK_API int32_t vnkReadFCentre(char** parameters, float* centreHz);
VNK_API int32_t vnkReadIFBWHz(char** parameters, float* bandwidthHz);
VNK_API int32_t vnkReadFMinMax(char** parameters, float* minimumHz, float* maximumHz);
VNK_API int32_t vnkReadRBWHz(char** parameters, float* rbwHz);
VNK_API int32_t vnkReadWindowType(char** parameters, char** name);
VNK_API int32_t vnkReadSampleRateHz(char** parameters, float* sampleRateHz);
VNK_API int32_t vnkReadRefLeveldBm(char** parameters, float* leveldBm);
VNK_API int32_t vnkReadNumericParameter(char** parameters, const char* key, float* value);
/** Also reads an array, as one text of its elements joined with ",". */
VNK_API int32_t vnkReadTextParameter(char** parameters, const char* key, char** value);
VNK_API int32_t vnkReadBooleanParameter(char** parameters, const char* key, uint8_t* value);

/**
 * Reads one number ("min", "max", "default") of one parameter of a schema from vnkGetParameterInfo.
 * @return 0; -13 in every other case; -2.
 */
VNK_API int32_t vnkReadParameterInfoElement(char** schema, const char* parameter, const char* element, float* value);

/**
 * Reads the whole description of one parameter of a schema as a text.
 * @return 0; -4 null output address; -13 no such parameter, or one described by a plain text; -2.
 */
VNK_API int32_t vnkReadParameterAsJSON(char** schema, const char* parameter, char** json);

/** @} */

/** @name Parameters of devices, streams and processors
 * @{ */

/**
 * The schema of an entity: its parameters, each with a description.
 * @return 0; -4 null address; -9 unknown handle; -2.
 */
VNK_API int32_t vnkGetParameterInfo(uint32_t handle, char** schema);

/**
 * The present values of an entity's parameters. A device may ask its unit for fresh ones (temperature, position),
 * 1 s for each question left unanswered.
 * @return 0; -4 null address; -9 unknown handle, or no parameters; -2.
 */
VNK_API int32_t vnkGetParameters(uint32_t handle, char** parameters);

/**
 * Sets parameters of an entity. The text is consumed: freed, and the variable NULL, whatever the result. A stream
 * takes all keys or none (LoopingFlag apart); a device each key that is good. A change on a stream that runs starts its
 * capture again.
 * @return 0; -4 null address; -9 unknown handle; -33 a key is left that nothing understood, with no text about it;
 * -34 something was refused: the texts are in the internal log (code -34), the last one also in the thread's detail,
 * and a status for each in the thread's queue; -2.
 */
VNK_API int32_t vnkSetParameters(uint32_t handle, char** parameters);

/** @} */

/** @name IQ streams
 * @{ */

/**
 * Makes an IQ stream. Parameters out of range are not refused here but when the stream is attached.
 * @param referenceLeveldBm The greatest power expected.
 * @return 0; -4 null address; -2.
 */
VNK_API int32_t vnkCreateIQStream(uint32_t* handle, float centreHz, float bandwidthHz, float referenceLeveldBm);

/**
 * Asks a device to serve a stream. Does not wait: the device's thread programs the unit, and frames come from then
 * on. Of several IQ streams on one device the oldest has the radio, and the next when that has gone. Attaching an
 * attached stream again changes nothing and returns 0.
 * @return 0; -8 unknown device; -38 unknown stream; -17 not a stream of this kind; -41 refused (vnkGetNextStatus: -62
 * centre, -63 bandwidth, -64 reference level out of range); -2.
 */
VNK_API int32_t vnkAttachStreamToDevice(uint32_t stream, uint32_t device);

/**
 * Ends the service. Waits until the capture has stopped, 5 s at the most. Frames already queued stay and can be read.
 * @return 0; -38 unknown stream; -44 it was not attached; -2.
 */
VNK_API int32_t vnkDetachStream(uint32_t stream);

/**
 * Drops all queued frames.
 * @return 0; -38 unknown stream; -2.
 */
VNK_API int32_t vnkFlushStream(uint32_t stream);

/**
 * @return 0 a source is attached; 5 none is; -38 unknown stream; -2.
 */
VNK_API int32_t vnkIsAttached(uint32_t stream);

/**
 * Allows a full queue to drop also frames that their source marked as not to be dropped.
 * @return 0; -38 unknown stream; -2.
 */
VNK_API int32_t vnkAllowDiscarding(uint32_t stream, uint8_t allow);

/**
 * Takes the next frame of an IQ stream, waiting up to `timeoutMs` milliseconds (of a time-out above one second on an
 * attached stream part may be left out: 5000 waits 4 s).
 *
 * On 0, `*record` points to a record that stays valid, with its samples, until vnkFreeIQ, even if the stream is closed
 * before. Samples are not copied. On any other status `*record` is left as it was. The queue holds 10 frames by default
 * (the parameters bufferFrames and bufferSec); when the reader is slower, the oldest are dropped and the next record
 * tells of a gap.
 * @return 0 a frame; 1 none in time; 2 the source has ended; 3 nothing received yet; -4 null address; -17 unknown
 * handle; -19 not an IQ stream; -86 nothing heard from the unit for 10 s; -2.
 * Of two threads that read one stream each frame goes to one.
 */
VNK_API int32_t vnkGetNextIQ(uint32_t stream, vnkIQRecord** record, uint32_t timeoutMs);

/**
 * Gives a record back and writes NULL into the variable. A record that the library did not make is freed with free(),
 * its samples and extras too.
 * @return 0; -4 null address; -20 the variable holds NULL; -2.
 */
VNK_API int32_t vnkFreeIQ(vnkIQRecord** record);

/** @} */

/** @name Spectrum and baseband streams
 * @{ */

/**
 * Makes a spectrum stream.
 * @param rbwHz Resolution bandwidth.
 * @param windowName A window's name (see vnkAddWindowType), or NULL for none named.
 * @param referenceLeveldBm The greatest power expected.
 * @return 0; -4 null address; -46 the minimum above the maximum (equal values pass); -47 a negative resolution
 * bandwidth; -48 a reference level below -100 or above 20 dBm; -49 another parameter is refused (a negative edge, an
 * unknown window; the reasons are in the internal log, code -7000); -2. Of several the first is told.
 */
VNK_API int32_t vnkCreateSpectrumStream(uint32_t* handle, float minimumHz, float maximumHz, float rbwHz,
                                        const char* windowName, float referenceLeveldBm);

/**
 * Takes the next frame of a spectrum stream; all else as for vnkGetNextIQ.
 * @return 0 a frame; 1 none in time; 2 the source has ended; 3 nothing received yet; -4 null address; -17 unknown
 * handle; -25 not a spectrum stream; -86 nothing heard from the unit for 10 s; -2.
 */
VNK_API int32_t vnkGetNextSpectrum(uint32_t stream, vnkSpectrumRecord** record, uint32_t timeoutMs);

/**
 * Gives a record back and writes NULL into the variable. A record that the library did not make is freed with free(),
 * its points, traces array and extras too.
 * @return 0; -4 null address; -20 the variable holds NULL; -2.
 */
VNK_API int32_t vnkFreeSpectrum(vnkSpectrumRecord** record);

/**
 * Takes the next frame of a baseband stream; all else as for vnkGetNextIQ.
 * @return 0 a frame; 1 none in time; 2 the source has ended; 3 nothing received yet; -4 null address; -17 unknown
 * handle; -78 not a baseband stream; -2.
 */
VNK_API int32_t vnkGetNextBaseband(uint32_t stream, vnkBasebandRecord** record, uint32_t timeoutMs);

/**
 * Gives a record back and writes NULL into the variable. A record that the library did not make is freed with free(),
 * its channels array and extras too.
 * @return 0; -4 null address; -20 the variable holds NULL; -2.
 */
VNK_API int32_t vnkFreeBaseband(vnkBasebandRecord** record);

/** @} */

/** @name Processors
 *
 * A processor takes the frames of one stream and makes frames of another kind: spectra from IQ, audio from IQ, traces
 * from spectra. It works on a thread of its own, from the moment it is attached until it is detached, and feeds any
 * number of streams, which other processors may follow. Its parameters go through vnkGetParameterInfo,
 * vnkGetParameters and vnkSetParameters with its handle, also while it works.
 *
 *     vnkCreateProcessor(&processor, "FMDemodulator");
 *     vnkGetProcessorOutputStream(processor, &audio);
 *     vnkAttachProcessorToStream(processor, stream);
 *     while (vnkGetNextBaseband(audio, &record, 2000) == 0) ...
 *
 * When the stream in front of a processor has ended and all its frames have been worked off, the end goes on to the
 * streams behind it, a tenth of a second later for each processor. A processor that has not received a frame since
 * it was attached passes no end on.
 * @{ */

/**
 * The names of all processor types, as {"processortypes":["AMDemodulator","FMDemodulator",...]}. Needs no initialised
 * interface.
 * @param types First freed, then receives a text for vnkDisposeString.
 * @return 0; -4 null address.
 */
VNK_API int32_t vnkGetProcessorTypes(char** types);

/**
 * Makes a processor, which is attached to nothing yet. It is closed with vnkClose.
 * @param processor Receives the handle; left as it was on failure.
 * @param typeName A name that vnkGetProcessorTypes gives, byte for byte.
 * @return 0; -4 null address; -72 no name; -74 no such type; -2.
 */
VNK_API int32_t vnkCreateProcessor(uint32_t* processor, const char* typeName);

/**
 * Lets a processor take the frames of a stream, beside the caller who reads it and other processors. A processor has
 * one input at a time: it is detached from an earlier one first, as by vnkDetachProcessor, also when the new one is
 * then refused.
 * Starts the processor's thread and does not wait for frames. Of two calls at once for one processor the one that ends
 * later stands. A processor may be attached to a stream of its own output.
 * @return 0; -73 unknown processor; -38 unknown stream; -75 the stream's frames are of a kind that the processor does
 * not take, or the system has no thread to give; -2.
 */
VNK_API int32_t vnkAttachProcessorToStream(uint32_t processor, uint32_t stream);

/**
 * Takes a processor off its input. Waits until its thread has stopped, one second at the most: a thread that still
 * waits then for room behind it (in a stream that nobody reads, for frames that must not be dropped) is left behind;
 * it ends when it gets room and sends nothing but the frame in flight. The processor may be attached again at once, and
 * works on when the one left behind has ended. The streams behind the processor stay attached to it and get no end. Of
 * two calls at once exactly one gives 0.
 * @return 0; -73 unknown processor; -76 it was not attached; -2.
 */
VNK_API int32_t vnkDetachProcessor(uint32_t processor);

/**
 * Makes a new stream of what a processor makes: spectra or audio, by the type. Each call makes another one, and each
 * of them receives all frames from then on. The stream is the caller's, is closed with vnkClose, and lives on when
 * the processor's handle is closed.
 * A processor implements no changes: vnkSetParameters on its streams of spectra gives -34 as long as they are attached,
 * though what concerns the queue alone ("bufferFrames" and the like) is set.
 * @param stream Receives the handle; left as it was on failure.
 * @return 0; -73 unknown processor; -4 null address; -82 no stream could be made; -83 it could not be attached; -2.
 */
VNK_API int32_t vnkGetProcessorOutputStream(uint32_t processor, uint32_t* stream);

/** @} */

/** @name Recordings
 *
 * A recording is a pair of files with one stem: stem.json describes the stream, stem.data holds its frames. What stands
 * behind the last "." of a path is replaced, so that a path names the pair with any extension, and without one as long
 * as no folder in it has a "." in its name. The folder is the text up to the last backslash, on every platform, and a
 * path without one is refused: write "/home/me/captures\\name". (On POSIX the file system sees a "/" in the backslash's
 * place.)
 * @{ */

/**
 * Records what a stream receives, from now on, whether it is read or not; or ends the recording.
 *
 * A name that is taken becomes name(1), name(2)...; the parameter "filename" of the stream tells which. A thread of
 * its own writes; a disk that cannot follow loses the oldest frames once 100 MiB wait, and never stalls the stream. A
 * disk that fails is told once, in the internal log (code -71). The description is written when the recording ends:
 * with a null or empty path here, with another path, or when the stream is closed. Each of these waits until all queued
 * frames are on disk. A process that is killed leaves the data and an empty description.
 * @return 0; -17 unknown handle; -70 an empty path and no recording; -71 no such folder, and an earlier recording goes
 * on; -2. Passes std::invalid_argument or std::out_of_range when the name is taken and the path, folders included,
 * holds "(" before something that is no number of 32 bits. On a stream that a device feeds, the device is asked for its
 * parameters first, as vnkGetParameters does.
 */
VNK_API int32_t vnkSetStreamOutputFile(uint32_t stream, const char* path);

/**
 * Plays a recording into a stream of its kind: at the pace at which it was recorded (spectra and IQ; baseband as fast
 * as it can be read), once, or for ever while the parameter "LoopingFlag" of the stream is true. At the end the stream
 * is detached. A recording that plays already is ended first, which takes a second at the most; a device goes on
 * feeding the stream beside it. Set "LoopingFlag" before: while a recording plays into an IQ or spectrum stream the
 * flag is taken, but vnkSetParameters returns -34, since a recording implements no change.
 * @return 0; -29 no such recording, or not readable as one; -30 not IQ, for an IQ stream; -31 not spectra, for a
 * spectrum stream; -79 not baseband, for a baseband stream; -87 unknown handle, or a stream of none of these kinds;
 * -41 refused; -2.
 */
VNK_API int32_t vnkAttachStreamToFile(uint32_t stream, const char* path);

/**
 * Plays a baseband recording through and writes a WAV file for it: at present its 44-byte header alone (16-bit PCM,
 * one channel, the recording's sample rate), without samples. The name is made unique as for recordings. Blocks until
 * the recording has been read.
 * @return 0; -4 null path; -29 no such recording, or the output cannot be opened; -79 not a baseband recording; -84 the
 * output's folder does not exist; -2. Can pass the exceptions of vnkSetStreamOutputFile.
 */
VNK_API int32_t vnkConvertBasebandFileToWavFile(const char* recording, const char* wavPath);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
