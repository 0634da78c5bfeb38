// Checksums and progress: the reference shows these parts. Exits with 0 when every result is as expected.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cstdio>
#include <stdexcept>
#include <string>

void Expect(bool isTrue, const char* what)
{
    if (!isTrue) throw std::runtime_error(std::string(what) + " gave a wrong result");
}

void Checksum()
{
    // [checksum]
    VoAlgo::SHA1 sum;
    sum.Update("first piece, ");
    sum.Update("second piece");
    const std::string digits = VoAlgo::SHA1::ToHex(sum.Finish());
    // [checksum]
    Expect(digits == VoAlgo::SHA1::ToHex(VoAlgo::SHA1::Hash("first piece, second piece")), "the checksum");
}

void Progress()
{
    double last = -1.0;
    // [progress]
    VoAlgo::CFunctionProgressMeter meter([&](const std::string& text, double share) {
        std::printf("%s: %.0f %%\n", text.c_str(), 100.0 * share);
        last = share;
        return true; // false cancels
    });
    VoAlgo::CProgressPart reading(&meter, 0.2); // a fifth of the work
    reading.Begin("reading", 2);
    reading.Advance();
    reading.Finish();
    VoAlgo::CProgressPart rest(&meter);
    rest.Begin("solving", 1000);
    for (int i = 0; i < 1000 && rest.Advance(); ++i) {
    }
    // [progress]
    Expect(last > 0.99, "the progress");
}

int main()
{
    try {
        Checksum();
        Progress();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
