# The installed interface of zndvr: the exported classes with the headers of their
# records, the platform parts that a host uses, the driver interface, and the virtual
# rack and sound devices for hosts that simulate them. Only these headers install. Every
# other header of the library is private: it includes platform/PrivateHeader.h, which
# stops a build that does not define ZNDVR_PRIVATE_BUILD (only the library's own targets
# do), and the layer test checks both rules.
#
# Exported classes join the list as they arrive, each with the headers of its records.
# A board's sound processor takes its speech coder from whoever installs the board, so the
# coder's interface (driver/) and the library's G.726 coder for it (sound/) are public.
set(ZNDVR_PUBLIC_HEADERS
  # capture: CVideo, CEncodeParam, CMaskInfo
  capture/CVideo.h
  capture/CaptureRecords.h
  capture/CaptureTypes.h
  capture/CEncodeParam.h
  capture/CMaskInfo.h
  # codec: CDecoder
  codec/CDecoder.h
  codec/CodecTypes.h
  # codec: CH263Writer, the lossless rewrite of picture records into standard H.263
  codec/CH263Writer.h
  # recording: CZnFile
  recording/CZnFile.h
  recording/FileRecords.h
  # playback: CDecodeWnd
  playback/CDecodeWnd.h
  # storage: CZnDatabase, CHddObj, CFileSearchInfo, CZnFileInfo
  storage/CFileSearchInfo.h
  storage/CHddObj.h
  storage/CZnDatabase.h
  storage/CZnFileInfo.h
  storage/StorageRecords.h
  # sound: CWaveCodec, and the speech coder that hosts use to read recorded sound
  sound/CAdpcm.h
  sound/CWaveCodec.h
  # sound: CWaveWnd, which plays and records WAVE files
  sound/CWaveWnd.h
  # sound: the speech coder that a virtual board's sound processor codes with
  sound/CAdpcmSpeechEncoder.h
  # the shared vocabulary of the records above
  vocabulary/BoardLayout.h
  vocabulary/FrameRecords.h
  vocabulary/FrameSizes.h
  vocabulary/Messages.h
  vocabulary/SoundFormat.h
  vocabulary/StreamRevision.h
  vocabulary/VideoSignal.h
  # the driver interface, and the virtual rack behind it
  driver/CSpciDebi.h
  driver/CSpciIO.h
  driver/CVideoStream.h
  driver/DriverRecords.h
  driver/CSpeechEncoder.h
  driver/virtual/CBoardSoundPort.h
  driver/virtual/CBoardSoundProcessor.h
  driver/virtual/CVirtualBoard.h
  driver/virtual/CVirtualBus.h
  driver/virtual/CVirtualRack.h
  driver/virtual/FrameSources.h
  # the platform parts a host uses: objects, strings, files, windows, threads, time, disks
  platform/CArchive.h
  platform/CArchiveException.h
  platform/CArray.h
  platform/CException.h
  platform/CFile.h
  platform/CFileException.h
  platform/CFileFind.h
  platform/CMemFile.h
  platform/CMemoryException.h
  platform/CObList.h
  platform/CObject.h
  platform/CRect.h
  platform/CString.h
  platform/CTime.h
  platform/CWnd.h
  platform/Disks.h
  platform/Export.h
  platform/TickClock.h
  platform/WinMessages.h
  platform/WinThreads.h
  platform/WinMmio.h
  platform/WinTypes.h
  platform/WinWave.h
  # the simulated disk, for hosts and tests that crash-test what they write
  platform/CDiskSimulator.h
  # the virtual sound devices, for hosts and tests that simulate them
  platform/CVirtualWave.h
  platform/CWaveSignal.h
  platform/WaveFile.h
)
