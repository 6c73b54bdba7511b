// vXfsFile: a clip kept as one raw file. A big-endian header, then the
// frames in fixed slots whose size is a whole number of blocks, laid out so
// that frames move with unbuffered (direct) transfers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device/vStorageDevice.h"
#include "platform/dmParams.h"
#include "platform/fileIdentity.h"
#include "platform/fsControl.h"
#include "util/vString.h"

// The clip header as it travels with a clip object: version, image
// parameters and frame count. The record owns its parameter list.
struct fileHeader {
    int32_t version = 3;
    DMparams* params = nullptr;
    int32_t numFrames = 0;

    fileHeader();  // version 3, an empty list, 0 frames
    fileHeader(const fileHeader& other);
    fileHeader& operator=(const fileHeader& other);
    ~fileHeader();

    // Five lines on stdout: version, frame count, sizes and rate.
    void debug() const;
};

// Control orders understood by vXfsFile::IOCtl. Where an order takes a
// number rather than an output pointer, the number travels in the pointer's
// value: IOCtl(XFS_ALLOCATE_IMAGES, reinterpret_cast<void*>(uintptr_t(n))).
enum vXfsFileOrder : int {
    XFS_GET_MAX_IO_SIZE = 1,      // int* out: largest bytes per transfer
    XFS_GET_FREE_SPACE_KB = 2,    // int* out
    XFS_GET_FREE_SPACE_MB = 3,    // int* out
    XFS_GET_FREE_IMAGES = 4,      // int* out: frame slots that fit, less one
    XFS_GET_FS_TYPE = 5,          // char[kFsTypeNameSize] out; open clip
    XFS_ALLOCATE_IMAGES = 6,      // frame count by value; open clip
    XFS_SET_REPLACEABLE = 7,      // flag by value (null = 0), in memory
    XFS_SET_BLOCK_SIZE = 8,       // block size by value, in memory
    XFS_GET_BMAP = 9,             // getbmap[kBmapRecords] out; open clip
    XFS_GET_FILE_SIZE_KB = 10,    // int* out; open clip
    XFS_CHANGE_NUM_FRAMES = 11,   // frame count by value, rewrites the header
    XFS_GET_MEM_ALIGNMENT = 12,   // int* out: buffer alignment for transfers
    XFS_CHANGE_REPLACEABLE = 13,  // value by value, rewrites the header
    XFS_GET_FS_SIZE_KB = 14,      // int* out
};

// Records in the array that XFS_GET_BMAP fills, record 0 included.
constexpr int kBmapRecords = 100000;

class vXfsFile : public vStorageDevice {
public:
    vXfsFile();
    ~vXfsFile() override;
    vXfsFile(const vXfsFile&) = delete;
    vXfsFile& operator=(const vXfsFile&) = delete;

    void Init();

    // Open and close hooks, driven by Open("r") / Open("w") / Close().
    int OpenForReading() override;
    int OpenForWriting() override;
    int CloseForReading() override;
    int CloseForWriting() override;

    // Opening for writing in two steps, so that a caller writing several
    // files can learn everything about each of them before any changes.
    // ClaimForWriting opens what Open("w") will write and changes nothing on
    // disk: an existing clip, examined through a descriptor of our own (the
    // object then holds what opening will give: a preserved clip's own
    // header, or the caller's settings with the old clip's block size), or a
    // new clip that has no name yet. Identity() then tells which file it is.
    // Open("w") finishes the claim (or makes one first when there is none):
    // it writes the header of a new or replaced clip, or keeps a preserved
    // one. A claim never finished leaves the disk as it was.
    // Results: 1 claimed; 0 failed, with the store's messages; -1 the file
    // is one of `avoid` (the files a caller reads, or its other outputs),
    // with nothing printed and nothing claimed.
    int ClaimForWriting(const FileIdentity* avoid = nullptr, int avoidCount = 0);
    void DropClaim();
    bool HasClaim() const { return claim.active; }
    // The existing clip a claim found will be kept as it is (preserved).
    bool ClaimKeepsClip() const { return claim.active && claim.keep; }

    // The file this object has open or claimed, or last examined for a
    // claim; unknown when there is none.
    FileIdentity Identity() const;

    int IOCtl(int order, void* arg) override;

    // Name and parameters. Setters (but SetName) work open or closed and
    // change the object only, never the header already on disk.
    int SetName(const char* n) override;  // refused (0) while open
    vString GetName() const override;
    int SetSize(int width, int height) override;
    int SetImageLenght(int32_t frames) override;
    int SetImageFormat(DMimagepacking packing) override;
    int SetInterlacing(int interlacing) override;
    int SetAudioRate(double rate) override;  // no audio: stops the process
    int SetImageRate(double rate) override;
    int GetWidth() const override;
    int GetHeight() const override;
    int32_t GetNumFrames() const override;
    DMimagepacking GetImageFormat() const override;
    int GetInterlacing(int& interlacing) const override;
    int GetAudioRate(double& rate) const override;  // stops the process
    int GetImageRate(double& rate) const override;
    int GetAudioFrameSize(int& size) const override;  // stops the process
    int32_t GetImageFrameLenght() const override;
    int32_t GetAudioFrameLenght() const override;  // stops the process
    int UseImageTrack() override;
    int UseAudioTrack(int track) override;  // stops the process

    // Frame slot: one frame's bytes rounded up to whole blocks. 0 when the
    // parameters describe no frame or the block size is not positive.
    int ImageSize() const;

    // Frame transfers. Frame i lives at dataOffset + i * size.
    int GetImageSize(int frame, int& size) override;
    int GetImage(int frame, void* data, int size) override;
    int PutImage(int frame, void* data, int size) override;
    int GetImagesBlock(int first, int last, int frameSize, void* data) override;
    int PutImagesBlock(int first, int last, int frameSize, void* data);
    int GetImagesVector(int first, int last, void** data);
    int PutImagesVector(int first, int last, void** data);
    int PutDummyImage(int frame) override;
    int PutAudioFrame(int frame, void* data) override;            // stops
    int GetAudioFrame(int frame, void* data, int size) override;  // stops

    // Bytes actually moved by the last frame transfer (single frame, block
    // or vector); a read at the end of the file moves fewer than asked and
    // still succeeds, so a caller that must notice a truncated clip compares
    // this with what it asked for.
    int64_t LastTransferBytes() const { return lastTransferBytes; }
    // Holding reports back: while held, the system-error lines of failed
    // frame transfers are kept instead of printed, and ReleaseReports prints
    // them, in order, when the caller reaches the point where it wants them
    // seen (a reader working ahead of a writer shows a read's failure where
    // the read would have been made). Held reports never released are lost.
    void HoldReports(bool hold);
    void ReleaseReports();

    // Size in bytes of the open clip's file; -1 when not open.
    int64_t FileSizeBytes() const;

    // Bytes of the picture at the start of a frame slot: the frame's own
    // size for the clip's parameters (0 when they describe no frame).
    int64_t PictureBytes() const;

    // Whether the file open on fd begins as a clip does, looked at without
    // a word on standard output and without moving the file's offset.
    static bool StartsAsClip(int fd);

    // Frames of the open clip, counted from frame 0 and at most the header's
    // count, whose first `pictureBytes` bytes are all in the file as written
    // data: not past its end, not in a hole, not in space only reserved.
    // With no picture size, the frame's own size for its parameters. 0 when
    // the clip is not open or its count is not positive.
    int64_t FramesPresent(int64_t pictureBytes = 0) const;

    // Header on disk. Both position `descriptor` at byte 0 and read or write
    // through fd; every caller passes descriptor and its own header.
    int ReadHead(int fd, fileHeader& head);
    int WriteHead(int fd, fileHeader& head);

    // Learns the direct-I/O limits of the clip's file system and switches
    // the open descriptor to direct I/O when the block size matches.
    void SetDirectIO();

    // Free space, in KB, on the file system that holds `path`.
    int GetFreeDiskSpace_Kb(const char* path);

    // Name, mode and header lines on stdout.
    void Debug();

    // State queries.
    int Descriptor() const { return descriptor; }
    int32_t BlockSize() const { return blockSize; }
    int32_t DataOffset() const { return dataOffset; }
    int32_t Replaceable() const { return replaceable; }
    const dioattr& DioAttr() const { return dio; }
    int32_t Version() const { return header.version; }

protected:
    char* name = nullptr;
    int32_t replaceable = 1;
    int32_t descriptor = 0;
    dioattr dio = kDefaultDioattr;
    fileHeader header;
    int32_t blockSize = 4096;
    int32_t dataOffset = 4096;
    int64_t lastTransferBytes = 0;
    bool directIO = false;  // descriptor switched to unbuffered transfers
    bool holdReports = false;
    std::vector<std::string> heldReports;

    // What ClaimForWriting found, until Open("w") takes it.
    struct WriteClaim {
        bool active = false;
        int fd = 0;              // the file to write; 0 for a new clip made when opened
        bool fresh = false;      // a new clip (fd nameless, or 0)
        bool keep = false;       // an existing preserved clip
        int32_t oldVersion = 3;  // header version of the clip being replaced
    } claim;
    FileIdentity examined;  // the file the last claim looked at

private:
    int ChunkedTransfer(bool writing, void* data, int64_t bytes, int64_t pos, const char* failure);
    int VectorTransfer(bool writing, int first, int last, void** data);
    int FrameTransfer(bool writing, int frame, void* data, int size);
    int BlockTransfer(bool writing, int first, int last, int frameSize, void* data);
    int ChangeHeaderField(int order, int32_t value);
    // The control orders, one each (IOCtl picks them by number).
    int OrderMaxIoSize(void* arg);
    int OrderFreeSpaceKb(void* arg);
    int OrderFreeSpaceMb(void* arg);
    int OrderFreeImages(void* arg);
    int OrderFsType(void* arg);
    int OrderAllocateImages(void* arg);
    int OrderSetReplaceable(void* arg);
    int OrderSetBlockSize(void* arg);
    int OrderBmap(void* arg);
    int OrderFileSizeKb(void* arg);
    int OrderChangeNumFrames(void* arg);
    int OrderMemAlignment(void* arg);
    int OrderChangeReplaceable(void* arg);
    int OrderFsSizeKb(void* arg);
    int CheckLayout(const char* operation);
    void ReportSystemError(const char* text);
    int FramesClearOfHeader(int32_t version, const char* operation);
    void CloseDescriptor();
    int ReadHeadFields(int fd, fileHeader& head);
    int ClaimNewClip();
    int ClaimExistingClip(const FileIdentity* avoid, int avoidCount);
    int FinishClaim();
};
