// The batch's converters: pal2ntsc started N at a time, each with its
// standard output and error read through pipes. The converter's exit status
// is 0 whatever happens; its standard output says how it went: a run that
// succeeds prints only its information line, "PAL file: N frames [WxH]",
// and every failure adds a line after it (or prints one instead).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/uniqueFd.h"
#include "tool/vclip/batch.h"
#include "tool/vclip/clipAccess.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// What a child may print that we keep: its last bytes.
constexpr size_t kKeptOutput = 1 << 16;

struct Job {
    BatchClip* clip = nullptr;
    pid_t pid = -1;
    UniqueFd out, err;
    std::string outText, errText;
    Clock::time_point start;
    std::string partialNtsc, partialReduced;
    Destination ntscPlace, reducedPlace;
};

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string lastLine(const std::string& text)
{
    size_t end = text.size();
    while (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r'))
        --end;
    const size_t begin = text.rfind('\n', end == 0 ? 0 : end - 1);
    return text.substr(begin == std::string::npos ? 0 : begin + 1, end - (begin == std::string::npos ? 0 : begin + 1));
}

// The converter's information line as the last line it printed: a
// success (the clip store may have printed warnings before it; every
// failure prints its line after it, or instead of it).
bool convertedWhole(const std::string& out, int32_t& frames, int& width)
{
    long count = 0;
    int height = 0, used = 0;
    const std::string last = lastLine(out);
    if (out.empty() || out.back() != '\n' ||
        std::sscanf(last.c_str(), "PAL file: %ld frames [%dx%d]%n", &count, &width, &height, &used) != 3 ||
        static_cast<size_t>(used) != last.size())
        return false;
    frames = static_cast<int32_t>(count);
    return true;
}

// Looks at the outputs' final names (what may be replaced there, by the
// rules every vclip output follows) and starts the converter on the
// temporary names. Empty, or why the clip cannot be started.
std::string start(const BatchSettings& settings, Job& job)
{
    BatchClip& clip = *job.clip;
    OutputRules rules;
    rules.force = settings.force;
    rules.inputs = {fsIdentityOfPath(clip.input.c_str())};
    if (!makeParentFolders(clip.ntsc) || !examineDestination(clip.ntsc, OutputKind::Clip, rules, job.ntscPlace))
        return "refused to write " + clip.ntsc;
    job.partialNtsc = partialNameOf(clip.ntsc);
    std::vector<std::string> args{settings.converter, "-P", clip.input, "-N", job.partialNtsc};
    if (!clip.reduced.empty()) {
        if (!makeParentFolders(clip.reduced) ||
            !examineDestination(clip.reduced, OutputKind::Clip, rules, job.reducedPlace))
            return "refused to write " + clip.reduced;
        job.partialReduced = partialNameOf(clip.reduced);
        args.insert(args.end(), {"-n", job.partialReduced, "-s", std::to_string(settings.scale)});
    }

    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0)
        return std::string("cannot make a pipe: ") + std::strerror(errno);
    job.out.Reset(outPipe[0]);
    const UniqueFd outWrite(outPipe[1]);
    if (pipe2(errPipe, O_CLOEXEC) != 0)
        return std::string("cannot make a pipe: ") + std::strerror(errno);
    job.err.Reset(errPipe[0]);
    const UniqueFd errWrite(errPipe[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outWrite.Get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errWrite.Get(), STDERR_FILENO);
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);
    job.start = Clock::now();
    const int rc = posix_spawn(&job.pid, settings.converter.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        return "cannot start " + settings.converter + ": " + std::strerror(rc);
    return {};
}

// Takes what a child printed; false once both pipes are closed.
void drain(UniqueFd& fd, std::string& text)
{
    char buffer[4096];
    const ssize_t got = read(fd.Get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR)
        return;
    if (got <= 0) {
        fd.Reset();
        return;
    }
    text.append(buffer, static_cast<size_t>(got));
    if (text.size() > kKeptOutput)
        text.erase(0, text.size() - kKeptOutput);
}

// Checks the outputs under their temporary names, writes their checksums
// when asked, and gives them their final names. Empty, or what went wrong.
std::string settle(const BatchSettings& settings, Job& job, int32_t frames, int width)
{
    struct Output {
        const std::string* partial;
        OutputShape shape;
        Destination* place;
    };
    std::vector<Output> outputs{{&job.partialNtsc, ntscShape(width), &job.ntscPlace}};
    if (!job.partialReduced.empty())
        outputs.push_back({&job.partialReduced, reducedShape(width, settings.scale), &job.reducedPlace});
    for (const Output& o : outputs) {
        const std::string problem = outputProblem(*o.partial, o.shape, frames);
        if (!problem.empty())
            return "the converter said it succeeded, but " + *o.partial + ": " + problem;
        if (settings.framemd5 && !writeFramemd5File(*o.partial, o.place->name, settings.force))
            return "cannot write " + o.place->name + ".framemd5";
    }
    for (const Output& o : outputs)
        if (!putInPlace(*o.partial, fsIdentityOfPath(o.partial->c_str()), *o.place))
            return "cannot put " + o.place->name + " in place";
    return {};
}

BatchOutcome finish(const BatchSettings& settings, Job& job, int status)
{
    BatchOutcome outcome;
    outcome.seconds = secondsSince(job.start);
    outcome.message = lastLine(job.outText);
    int32_t frames = 0;
    int width = 0;
    long counted = 0;
    const size_t info = job.outText.find("PAL file: ");
    if (info != std::string::npos && std::sscanf(job.outText.c_str() + info, "PAL file: %ld frames", &counted) == 1)
        job.clip->frames = static_cast<int32_t>(counted);
    const bool exited = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!exited)
        outcome.message =
            "the converter " +
            (WIFSIGNALED(status) ? std::string("was stopped by signal ") + std::to_string(WTERMSIG(status))
                                 : "exited with status " + std::to_string(WEXITSTATUS(status))) +
            (outcome.message.empty() ? "" : " after: " + outcome.message);
    else if (!lastLine(job.errText).empty() && !convertedWhole(job.outText, frames, width))
        outcome.message += " (" + lastLine(job.errText) + ")";
    // The files under the temporary names now, before any is put in place.
    const FileIdentity made[2] = {fsIdentityOfPath(job.partialNtsc.c_str()),
                                  fsIdentityOfPath(job.partialReduced.c_str())};
    if (exited && convertedWhole(job.outText, frames, width)) {
        job.clip->frames = frames;
        const std::string problem = settle(settings, job, frames, width);
        outcome.kind = problem.empty() ? BatchOutcome::Kind::Converted : BatchOutcome::Kind::Failed;
        if (!problem.empty())
            outcome.message = problem;
    }
    // What a failed run left under the temporary names is of no use.
    for (auto [partial, id] : {std::pair{&job.partialNtsc, made[0]}, std::pair{&job.partialReduced, made[1]}})
        if (!partial->empty() && fsSameFile(fsIdentityOfPath(partial->c_str()), id))
            unlink(partial->c_str());
    return outcome;
}

// The progress line on a terminal: clips done of all, failures, the rate.
class BatchProgress {
public:
    explicit BatchProgress(size_t total) : total_(total), shown_(isatty(STDERR_FILENO) == 1) {}
    void Done(const BatchOutcome& outcome, int32_t frames)
    {
        ++done_;
        failed_ += outcome.kind == BatchOutcome::Kind::Failed;
        if (outcome.kind == BatchOutcome::Kind::Converted)
            frames_ += frames;
        Show();
    }
    void Show() const
    {
        if (shown_)
            std::fprintf(stderr, "\rbatch: %zu of %zu clips, %zu failed, %.1f frames/s ", done_, total_, failed_,
                         static_cast<double>(frames_) / std::max(secondsSince(start_), 1e-3));
    }
    void Clear() const
    {
        if (shown_)
            std::fputs("\r\033[K", stderr);
    }

private:
    size_t total_, done_ = 0, failed_ = 0;
    int64_t frames_ = 0;
    bool shown_;
    Clock::time_point start_ = Clock::now();
};

void recordOutcome(BatchManifest& manifest, BatchProgress& progress, const BatchClip& clip, const BatchOutcome& outcome)
{
    manifest.Record(clip, clip.frames, outcome);
    if (outcome.kind == BatchOutcome::Kind::Failed) {
        progress.Clear();
        std::printf("failed: %s: %s\n", clip.relative.c_str(), outcome.message.c_str());
        std::fflush(stdout);
    }
    progress.Done(outcome, clip.frames);
}

// Waits for output from the running children (a second at most) and
// finishes those that have ended.
void collect(const BatchSettings& settings, std::vector<std::unique_ptr<Job>>& running, BatchManifest& manifest,
             BatchProgress& progress, int& failed)
{
    std::vector<pollfd> fds;
    for (const auto& job : running)
        for (const UniqueFd* fd : {&job->out, &job->err})
            if (fd->IsOpen())
                fds.push_back({fd->Get(), POLLIN, 0});
    if (poll(fds.data(), fds.size(), 1000) < 0 && errno != EINTR)
        return;
    for (auto it = running.begin(); it != running.end();) {
        Job& job = **it;
        for (auto [fd, text] : {std::pair{&job.out, &job.outText}, std::pair{&job.err, &job.errText}})
            for (const pollfd& p : fds)
                if (fd->IsOpen() && p.fd == fd->Get() && p.revents != 0)
                    drain(*fd, *text);
        if (job.out.IsOpen() || job.err.IsOpen()) {
            ++it;
            continue;
        }
        int status = 0;
        while (waitpid(job.pid, &status, 0) < 0 && errno == EINTR) {
        }
        const BatchOutcome outcome = finish(settings, job, status);
        failed += outcome.kind == BatchOutcome::Kind::Failed;
        recordOutcome(manifest, progress, *job.clip, outcome);
        it = running.erase(it);
    }
    progress.Show();
}

}  // namespace

int runBatch(const BatchSettings& settings, std::vector<BatchClip>& clips, BatchManifest& manifest)
{
    int failed = 0;
    BatchProgress progress(clips.size());
    std::vector<std::unique_ptr<Job>> running;
    size_t next = 0;
    while (next < clips.size() || !running.empty()) {
        while (running.size() < static_cast<size_t>(settings.jobs) && next < clips.size()) {
            auto job = std::make_unique<Job>();
            job->clip = &clips[next++];
            const std::string refusal = start(settings, *job);
            if (refusal.empty()) {
                running.push_back(std::move(job));
                continue;
            }
            BatchOutcome outcome;
            outcome.message = refusal;
            ++failed;
            recordOutcome(manifest, progress, *job->clip, outcome);
        }
        collect(settings, running, manifest, progress, failed);
    }
    progress.Clear();
    return failed;
}
